"""Makes XML-RPC calls with xmlrpc.client and prints their outcomes as JSON.

Runs inside the test's network namespace: reads {"url": ..., "calls":
[[method, [params...]], ...]} on standard input and prints one list of
{"result": ...} or {"fault": [code, text]} in the same order. Values JSON
cannot hold travel as {"__datetime__": text} and {"__base64__": text}.
"""
import base64
import json
import sys
import xmlrpc.client


def decode(v):
    if isinstance(v, dict):
        if "__datetime__" in v:
            return xmlrpc.client.DateTime(v["__datetime__"])
        if "__base64__" in v:
            return xmlrpc.client.Binary(base64.b64decode(v["__base64__"]))
        return {k: decode(x) for k, x in v.items()}
    if isinstance(v, list):
        return [decode(x) for x in v]
    return v


def encode(v):
    if isinstance(v, xmlrpc.client.DateTime):
        return {"__datetime__": v.value}
    if isinstance(v, xmlrpc.client.Binary):
        return {"__base64__": base64.b64encode(v.data).decode()}
    if isinstance(v, dict):
        return {k: encode(x) for k, x in v.items()}
    if isinstance(v, list):
        return [encode(x) for x in v]
    return v


def main():
    request = json.load(sys.stdin)
    proxy = xmlrpc.client.ServerProxy(request["url"])
    out = []
    for method, params in request["calls"]:
        try:
            out.append({"result": encode(getattr(proxy, method)(*decode(params)))})
        except xmlrpc.client.Fault as f:
            out.append({"fault": [f.faultCode, f.faultString]})
    json.dump(out, sys.stdout)


if __name__ == "__main__":
    main()

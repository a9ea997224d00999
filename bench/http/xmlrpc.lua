-- wrk script: POSTs system.listMethods and an echo of a small struct in
-- turn, and prints one machine-readable RESULT line at the end.
local function call(name, params)
  local body = '<?xml version="1.0"?>\r\n<methodCall><methodName>' .. name ..
    '</methodName>\r\n<params>' .. params .. '</params></methodCall>\r\n'
  return wrk.format("POST", "/RPC2", { ["Content-Type"] = "text/xml" }, body)
end

local requests = {
  call("system.listMethods", ""),
  call("echo", "<param><value><struct>" ..
    "<member><name>job</name><value><i4>1234</i4></value></member>" ..
    "<member><name>name</name><value><string>clip-0042.mxf</string></value></member>" ..
    "<member><name>priority</name><value><double>0.5</double></value></member>" ..
    "<member><name>urgent</name><value><boolean>1</boolean></value></member>" ..
    "</struct></value></param>"),
}

local n = 0
function request()
  n = n + 1
  return requests[(n % 2) + 1]
end

function done(summary, latency, _)
  local e = summary.errors
  io.write(string.format(
    "RESULT requests=%d duration_us=%d p50_us=%d p99_us=%d errors=%d non2xx=%d\n",
    summary.requests, summary.duration, latency:percentile(50), latency:percentile(99),
    e.connect + e.read + e.write + e.timeout, e.status))
end

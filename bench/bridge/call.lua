-- wrk script: POSTs one XML-RPC call with no parameters, the method named by
-- the environment variable XMLRPC_METHOD, and prints one RESULT line.
local method = os.getenv("XMLRPC_METHOD") or "getVersion"
local body = '<?xml version="1.0"?>\r\n<methodCall><methodName>' .. method ..
  '</methodName>\r\n<params></params></methodCall>\r\n'
local req = wrk.format("POST", "/RPC2", { ["Content-Type"] = "text/xml" }, body)

function request()
  return req
end

-- Each wrk thread runs its own Lua state; done() runs in the main one, so
-- it collects the threads' counters through the handles kept here.
local threads = {}
function setup(thread)
  table.insert(threads, thread)
end

-- A reply that carries an `error` member is a failed round trip, even
-- though it comes with 200 OK.
bad = 0
function response(status, headers, body)
  if body and body:find("<name>error</name>", 1, true) then bad = bad + 1 end
end

function done(summary, latency, _)
  local e = summary.errors
  local bad = 0
  for _, t in ipairs(threads) do bad = bad + t:get("bad") end
  io.write(string.format(
    "RESULT requests=%d duration_us=%d p50_us=%d p99_us=%d errors=%d\n",
    summary.requests, summary.duration, latency:percentile(50), latency:percentile(99),
    e.connect + e.read + e.write + e.timeout + e.status + bad))
end

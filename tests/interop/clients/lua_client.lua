-- The gateway called with Lua's xmlrpc (see ../README.md for the checks and
-- the submission every client sends).
--
-- The library writes a Lua string as <string>text</string> without
-- escaping it (the caller escapes &, < and >), a table as a struct unless
-- it is typed as an array, a number as int or double by its value, and has
-- no way to write a dateTime or base64 value.
local xmlrpc = require "xmlrpc"
local http = require "xmlrpc.http"
local socket = require "socket"

local url, tag, mode = arg[1], arg[2], arg[3]
local name = tag .. " <b>&amp;</b> \"q\" 'a' café 日本"
local CALLS = 200

local function str(s)
  return (s:gsub("&", "&amp;"):gsub("<", "&lt;"):gsub(">", "&gt;"))
end
local function arr(...)
  return xmlrpc.newTypedValue({...}, xmlrpc.newArray())
end
local function double(d)
  return xmlrpc.newTypedValue(d, "double")
end

local function call(method, ...)
  local ok, result = http.call(url, method, ...)
  if not ok then
    error(method .. ": fault " .. tostring(result.faultString or result))
  end
  return result
end

-- A readable form of a value, for messages and comparisons (keys sorted).
local function show(v)
  if type(v) ~= "table" then
    return type(v) == "string" and string.format("%q", v) or tostring(v)
  end
  local keys = {}
  for k in pairs(v) do
    table.insert(keys, k)
  end
  table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
  local parts = {}
  for _, k in ipairs(keys) do
    table.insert(parts, tostring(k) .. "=" .. show(v[k]))
  end
  return "{" .. table.concat(parts, ", ") .. "}"
end

local function expect(what, got, want)
  if show(got) == show(want) then
    return nil
  end
  return what .. ": got " .. show(got) .. ", expected " .. show(want)
end

local function ok(reply)
  if type(reply) ~= "table" or reply.error ~= nil then
    error("unexpected reply " .. show(reply))
  end
  return reply
end

local function report(check, fn)
  local success, problem = pcall(fn)
  if not success then
    print("RESULT " .. check .. " fail " .. tostring(problem):gsub("\n", " "))
  elseif problem == nil then
    print("RESULT " .. check .. " pass")
  else
    print("RESULT " .. check .. " fail " .. problem)
  end
  io.stdout:flush()
end

if mode == "calls" then
  local start = socket.gettime()
  for _ = 1, CALLS do
    ok(call("getVersion"))
  end
  print(string.format("TIME %.3f", (socket.gettime() - start) * 1000 / CALLS))
  os.exit(0)
end

report("list-methods", function()
  local methods = call("system.listMethods")
  local have = {}
  for _, m in ipairs(methods) do
    have[m] = true
  end
  for _, m in ipairs({"getVersion", "submitSubmission", "system.multicall"}) do
    if not have[m] then
      return m .. " missing"
    end
  end
  return expect("number of methods", #methods, 44)
end)
report("method-help", function()
  local text = call("system.methodHelp", "jobPause")
  if not text:find("'proxy.node.job.pause'", 1, true) then
    return "unexpected help " .. text
  end
end)
report("get-version", function()
  return expect("version", ok(call("getVersion")).version, "7.0.0.0")
end)
report("submit", function()
  local submission = {
    name = str(name),
    priority = 7,
    sources = arr({type = "file-source", files = arr("/media/in/a.mov")}),
    tasks = arr({type = "transfer", destination = "/media/out"}),
    ints = arr(0, -1, 2147483647, -2147483648),
    yes = true,
    no = false,
    ratio = 2.5,
    small = -0.125,
    nested = {level = 1, inner = {level = 2, items = arr(1, "two", arr(double(3.5), {four = false}))}},
    ["empty-string"] = "",
    ["empty-array"] = arr(),
    ["empty-struct"] = {},
  }
  local reply = ok(call("submitSubmission", {submission = submission}))
  if #reply["job-ids"] ~= 1 then
    return "job-ids " .. show(reply["job-ids"])
  end
  local wf = ok(call("statusWorkflows2", {["workflow-ids"] = arr(reply["workflow-id"])})).workflows
  return expect("workflow name", wf[1].name, name)
end)
report("empties", function()
  local src = ok(call("sourceCreateFileList", {name = "", files = arr("a", "", "b")})).source
  local problem = expect("source", {src.name, src.files}, {"", {"a", "", "b"}})
  if problem then
    return problem
  end
  local task = ok(call("taskCreateExecute", {command = "/bin/true", arguments = arr()})).task
  return expect("task", {task.command, task.arguments}, {"/bin/true", {}})
end)
report("multicall", function()
  local results = call("system.multicall", arr(
    {methodName = "getVersion", params = arr({})},
    {methodName = "jobPause", params = arr({["job-id"] = "no-such-job"})},
    {methodName = "sourceCreateFileList", params = arr({files = arr("x")})}))
  if #results ~= 3 then
    return #results .. " results for 3 calls: " .. show(results)
  elseif results[1][1].version ~= "7.0.0.0" then
    return "first result " .. show(results[1])
  elseif results[2][1].error == nil then
    return "second result " .. show(results[2])
  end
  return expect("third result files", results[3][1].source.files, {"x"})
end)

local function jobs(wf)
  local out = {}
  for _, t in ipairs(ok(call("statusTasks2", {["workflow-ids"] = arr(wf)})).tasks) do
    out[t["job-id"]] = t.state
  end
  return out
end
local function wait_state(wf, job, state)
  local deadline = socket.gettime() + 60
  local got
  while socket.gettime() < deadline do
    got = jobs(wf)[job]
    if got == state then
      return nil
    end
    socket.sleep(0.1)
  end
  return "job " .. job .. " never reached " .. state .. " (last " .. tostring(got) .. ")"
end
report("job-life", function()
  local source = ok(call("sourceCreateFileList", {files = arr("/media/in/a.mov")})).source
  local task = ok(call("taskCreateTransfer", {destination = "/media/out"})).task
  -- A list the gateway returned is a plain table: typed again to go back as an array.
  source.files = arr(unpack(source.files))
  local built = ok(call("submitBuildSubmission", {name = tag .. " life", sources = arr(source),
                                                  tasks = arr(task, task)}))
  local wf = built["workflow-id"]
  local first, second = built["job-ids"][1], built["job-ids"][2]
  local problem = expect("paused", ok(call("jobPause", {["job-id"] = second})).state, "paused")
    or wait_state(wf, first, "finished")
    or expect("still paused", jobs(wf)[second], "paused")
  if problem then
    return problem
  end
  if ok(call("jobResume", {["job-id"] = second})).state == "paused" then
    return "resumed job still paused"
  end
  ok(call("jobCancel", {["job-id"] = second}))
  return wait_state(wf, second, "cancelled")
end)

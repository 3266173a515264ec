-- The peer of the traced loop: counts to arg[1], and writes a stamped, flushed line for each step.
local trace = assert(io.open(arg[2], "w"))
local function line(format, ...)
  trace:write(os.date("%Y-%m-%d %H:%M:%S"), ".000 ", string.format(format, ...), "\r\n")
  trace:flush()
end
local rounds = tonumber(arg[1])
local i = 0
repeat
  line("AddInt value '%s' to the variable %s", "1", "i")
  i = i + 1
  line("test function called ('%s' %d '%s'). type: %d", tostring(i), 2, arg[1], 1)
  local result = i < rounds
  line("test function end with %s.", result and "True" or "False")
  if result then
    line("Entering onTrue handler.")
    line("GoTo label '%s'", "again")
  end
until not result
trace:close()

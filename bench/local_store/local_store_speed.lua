-- The first four programs of local_store_speed.cpp, to set its figures beside.
local function measure(name, program)
  local start = os.clock()
  program()
  print(string.format("%s in Lua, s\t%g", name, os.clock() - start))
end

local A = {}
A.__index = A
function A:foo(x) return x end
function A:set(x, y) self.a = x; self.b = y end

measure("while", function() local n = 0; while n < 10000000 do n = n + 1 end end)
measure("sends", function()
  local a, n = setmetatable({}, A), 0
  while n < 5000000 do a:foo(n); n = n + 1 end
end)
measure("objects", function()
  local n = 0
  while n < 2000000 do setmetatable({}, A):set(n, 1); n = n + 1 end
end)
measure("blocks", function()
  local sum, n = 0, 1
  local f = function(i) sum = sum + i end
  while n <= 5000000 do f(1); n = n + 1 end
end)

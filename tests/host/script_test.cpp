// Scripts: what they compute, what stops them, and that nothing of one call reaches the next.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "host/noise.h"
#include "host/script_runner.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::host;

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

const ScriptFamily kTold{{"intensity", "cell_value", "cell_index", "physical_pos"}};

/// Runs of a script over cells that differ in all that is told.
struct Cells {
  explicit Cells(const std::string& source) : runner(kTold) {
    isCompiled = runner.Compile(source);
    runner.SetOp({"node", 2.5, 0.04, 7});
  }
  template <class T>
  std::vector<T> Run(int count = 8, u32 worker = 0) {
    std::vector<double> intensity(count, 2.0), values(count);
    std::vector<i32> indices(count);
    std::vector<Vec3d> positions(count);
    for (int i = 0; i < count; ++i) {
      values[i] = 0.5 * i;
      indices[i] = 100 + i;
      positions[i] = {0.1 * i, 1, -0.3 * i};
    }
    const ScriptColumn told[] = {std::span<const double>(intensity),
                                 std::span<const double>(values), std::span<const i32>(indices),
                                 std::span<const Vec3d>(positions)};
    std::vector<T> answers(count);
    if (!runner.Run(worker, told, std::span<T>(answers))) answers.clear();
    return answers;
  }
  ScriptRunner runner;
  bool isCompiled;
};

/// What a script is stopped by, with its line: "3: text".
std::string ErrorOf(const std::string& source) {
  Cells cells(source);
  cells.Run<double>();
  const ScriptError error = cells.runner.Error();
  return error ? std::to_string(error.line) + ": " + error.text : std::string();
}

std::string Main(const std::string& body) { return "function main(op)\n" + body + "\nend"; }

TEST(Script, ReadsWhatItIsToldAndWhatItMadeWhenLoaded) {
  Cells cells(
      "local ramp = {10, 20, {deep = 30}}\n"
      "scale = 2\n"
      "local function square(x) return x * x end\n"
      "function main(op)\n"
      "  local sum = 0\n"
      "  for i, v in ipairs(ramp) do if type(v) == 'number' then sum = sum + v * i end end\n"
      "  return square(cell_value) * intensity + cell_index % 10 + sum + ramp[3].deep * scale + "
      "#ramp\n"
      "         + op.time + op.frame + op.step + (op.name == 'node' and 1000 or 0)\n"
      "end");
  const std::vector<double> answers = cells.Run<double>();
  ASSERT_EQ(answers.size(), 8u) << cells.runner.Error().text;
  for (int i = 0; i < 8; ++i)
    EXPECT_DOUBLE_EQ(answers[i], 0.25 * i * i * 2 + i + 50 + 60 + 3 + 2.5 + 7 + 0.04 + 1000) << i;
}

TEST(Script, VectorsAndNoiseComputeAsOursDo) {
  Cells cells(
      Main("local p = physical_pos\n"
           "local q = Cross(p, Vector(0, 1, 0)) * 2 + p / 4 - Unit(p) * Length(p) + 1\n"
           "local n = Vector(Noise(p), Noise(p.x, p.y, p.z), Noise(p, op.time))\n"
           "return -q * Vector(1, 2, 3) + n * Dot(p, q)"));
  const std::vector<Vec3d> answers = cells.Run<Vec3d>();
  ASSERT_EQ(answers.size(), 8u) << cells.runner.Error().text;
  const Noise noise(0);
  for (int i = 0; i < 8; ++i) {
    const Vec3d p{0.1 * i, 1, -0.3 * i}, one{1, 1, 1};
    const Vec3d q = Cross(p, Vec3d{0, 1, 0}) * 2.0 + p * 0.25 - Normalised(p) * Length(p) + one;
    const double n = noise.Evaluate(NoiseType::Gradient, p, 1);
    const Vec3d expected = q * Vec3d{-1, -2, -3} +
                           Vec3d{n, n, noise.Evaluate(NoiseType::Gradient, p, 2.5, 1)} * Dot(p, q);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(answers[i][a], expected[a], 1e-14) << i << a;
  }
}

TEST(Script, ErrorsTellTheLineAndTheText) {
  EXPECT_EQ(ErrorOf("\n\nfunction main(op"), "3: ')' expected near <eof>");
  EXPECT_EQ(ErrorOf("x = 1"), "0: it has no function main(op)");
  EXPECT_EQ(ErrorOf("\n" + Main("return nothing")), "3: nothing is called 'nothing' here");
  EXPECT_EQ(ErrorOf(Main("\nreturn cell_value + op")),
            "3: attempt to perform arithmetic on a table value (local 'op')");
  EXPECT_EQ(ErrorOf(Main("error('too hot')")), "2: too hot");
  EXPECT_EQ(ErrorOf(Main("error({})")), "1: it raised an error that is no text but a table");
  EXPECT_EQ(ErrorOf(Main("error('')")), "2: it raised an error without a text");
  EXPECT_EQ(ErrorOf(Main("return")), "1: main(op) gave nothing; expected a number");
  EXPECT_EQ(ErrorOf(Main("return physical_pos")), "1: main(op) gave a vector; expected a number");
  EXPECT_EQ(ErrorOf(Main("return 1 / (cell_index - 103)")),
            "1: main(op) gave a number that is not finite");
  EXPECT_EQ(ErrorOf(Main("return physical_pos.w")), "2: a vector has x, y and z alone");
  EXPECT_EQ(ErrorOf("local t = {1, nil, 3}\n" + Main("return #t")),
            "3: a list with gaps has no length");
  EXPECT_THAT(ErrorOf("local t = {}\n" + Main("t[op] = 1 return 1")),
              HasSubstr("3: 'table' can't be set in a call"));
  EXPECT_EQ(ErrorOf("\x1bLua"), "1: unexpected symbol near '<\\27>'");
}

TEST(Script, RemembersNothing) {
  for (const char* source :
       {"n = 0\nfunction main(op) n = n + 1 return n end",
        "local n = 0\nfunction main(op) n = n + 1 return n end",
        "local n = 1\nfunction main(op) n = 1.0 return 1 end",
        "local n = 0.0\nfunction main(op) n = -n return 1 end",
        "local n = 0 / 0\nfunction main(op) n = -n return 1 end",
        "local odd = false\nfunction main(op) odd = not odd return odd and 1 or 2 end",
        "local a, b, c, d, e, odd = 1, 2, 3, 4, 5, false\n"
        "function main(op) odd = not odd return a + b + c + d + e + (odd and 1 or 2) end",
        "local keep = ... keep(function() end) function main(op) return 1 end",
        "local t = {}\nfunction main(op) t.n = (t.n or 0) + 1 return t.n end",
        "local t = {{}}\nfunction main(op) t[1][1] = cell_value return 1 end",
        "local function keep() local n = 0 return function() n = n + 1 return n end end\n"
        "local next = keep()\nfunction main(op) return next() end",
        "function main(op) math.sin = math.cos return 1 end",
        "function main(op) Noise = nil return 1 end", "function main(op) _ENV = {} return 1 end",
        "function main(op) op.last = cell_value return 1 end",
        "function main(op) physical_pos.x = 1 return 1 end",
        "function main(op) main = nil return 1 end"}) {
    EXPECT_THAT(ErrorOf(source), AnyOf(HasSubstr("can't be "), HasSubstr("was set in a call")))
        << source;
  }
  // What is told is new in each call.
  Cells cells(
      Main("intensity = intensity + 1 cell_value = cell_value * 2\n"
           "physical_pos = physical_pos * 2\n"
           "return intensity + cell_value + physical_pos.y"));
  const std::vector<double> answers = cells.Run<double>();
  ASSERT_EQ(answers.size(), 8u) << cells.runner.Error().text;
  for (int i = 0; i < 8; ++i) EXPECT_DOUBLE_EQ(answers[i], 3 + i + 2);
}

TEST(Script, FindsNoWayOut) {
  for (const char* name :
       {"io",         "os",           "debug",        "package",        "require",  "load",
        "loadstring", "dofile",       "loadfile",     "pcall",          "xpcall",   "coroutine",
        "string",     "table",        "utf8",         "next",           "pairs",    "rawset",
        "rawget",     "setmetatable", "getmetatable", "collectgarbage", "tostring", "print",
        "_G"})
    EXPECT_EQ(ErrorOf(Main(std::string("return ") + name)),
              std::string("2: nothing is called '") + name + "' here");
  EXPECT_NE(ErrorOf(Main("return math.random()")), "");
  EXPECT_NE(ErrorOf(Main("return ('x'):rep(1000)")), "");
}

TEST(Script, WhatNeverEndsOrEatsMemoryIsStoppedWithinASecond) {
  const char* const bombs[] = {
      "while true do end",
      "function main(op) while true do end end",
      "function main(op) goto again ::again:: goto again end",
      "local function f() return 1 + f() end function main(op) return f() end",
      "local function f() return f() end function main(op) return f() end",
      "function main(op) local s = 'xxxxxxxx' while true do s = s .. s end end",
      "function main(op) local t = {} while true do t[#t + 1] = {} end end",
      "function main(op) local t = {} for i = 1, 20000 do t[i] = {} end while true do t[1] = {} "
      "end end",
      "function main(op) local s = 'x' for i = 1, 11 do s = s .. s end local t = s .. 'y'\n"
      "  while s < t do local u = s .. t end end",
      "local function g(n, ...) if n == 0 then return 1 end return g(n - 1, 1, ...) end\n"
      "function main(op) return g(1000000) end",
      "function main(op) return select(2, error(error)) end",
      // Each of these makes few instructions dear.
      "local function g(n, ...) if n > 0 then return g(n - 1, 1, 2, 3, 4, 5, 6, 7, 8, ...) end\n"
      "  while true do local a = math.max(...) end end\n"
      "function main(op) return g(4000) end",
      "local function g(n) if n == 0 then return 1 end return 1, g(n - 1) end\n"
      "function main(op) while true do local a = select('#', g(9000)) end end",
      "function main(op) local t = {} for i = 1, 8192 do t[i * 3.5] = true end\n"
      "  for i = 1, 1e9 do t[i * 3.5] = nil t[(i + 8192) * 3.5] = true end end",
      "function main(op) local s = '9' for i = 1, 9 do s = s .. s end\n"
      "  while true do local a = math.sin(s) end end",
  };
  for (const char* bomb : bombs) {
    std::clock_t start = std::clock();
    Cells cells(bomb);
    for (u32 worker = 0; worker < 3; ++worker) {
      if (cells.isCompiled) cells.Run<double>(8, worker);
      EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 1.0) << bomb;
      start = std::clock();
    }
    EXPECT_TRUE(cells.runner.Error()) << bomb;
    EXPECT_THAT(cells.runner.Error().text, Not(HasSubstr("longer than")))
        << "by the clock: " << bomb;
  }
}

TEST(Script, LengthsRestOnWhatAListHoldsAlone) {
  // The same list with gaps, made forwards, and backwards among other keys that come and go.
  Cells cells(
      Main("local n, a, b = cell_index * 2654435761 % 2^20 // 1, {}, {}\n"
           "for i = 1, 40 do b['x' .. i] = i b[{}] = i end\n"
           "for i = 1, 20 do if n >> i & 1 == 1 then a[i] = i end end\n"
           "for i = 20, 1, -1 do if n >> i & 1 == 1 then b[i] = i end b['x' .. i] = nil end\n"
           "assert(#a == #b and (#a == 0 or a[#a]) and not a[#a + 1], 'differ')\n"
           "return #a"));
  EXPECT_EQ(cells.Run<double>(2000).size(), 2000u) << cells.runner.Error().text;
}

TEST(Script, LengthsAndValuesMeanWhatTheLanguageSays) {
  Cells cells(
      "-- # in a comment ... and --[[ in a long one # ]] here\n"
      "local t, text = {1, 2, 3, n = {4, 5}}, '# ... \\' #' .. \"\\z\n   # ...\" .. [==[ # ]] ... "
      "]==]\n"
      "local function pass(...) return ... end\n"
      "local function count(...) local a, b = ...\n"
      "  (pass or count)(a)\n"
      "  return select('#', ...) + #{...} * 10 + select('#', pass(...), pass(...)) * 100 + (b or "
      "0) end\n"
      "function main(op)\n"
      "  assert(#t == 3 and #t.n==2 and -#t == -3 and 2^#t == 8 and #t*2^#t.n == 12 and "
      "not(#t<3))\n"
      "  assert(#'abc'..#'d' == '31' and #text == 24 and #pass('ab', 1) == 2 and#t~=#t.n and 1 ..2 "
      "== '12')\n"
      "  local last = {} last[#last + 1] = 7 last[#last + 1] = 8\n"
      "  return count(5, 6, 7) + #last + last[#last] + .5 + 0x.8p+1 + 3.e-0\n"
      "end");
  const std::vector<double> answers = cells.Run<double>();
  ASSERT_EQ(answers.size(), 8u) << cells.runner.Error().line << cells.runner.Error().text;
  EXPECT_EQ(answers[0], 3 + 30 + 400 + 6 + 2 + 8 + 0.5 + 1 + 3);
  EXPECT_EQ(ErrorOf(Main("return 1 #op")),
            "2: 'end' expected (to close 'function' at line 1) near '#'");
  EXPECT_EQ(ErrorOf(Main("\nreturn #op.step")), "3: attempt to get length of a number value");
  EXPECT_EQ(ErrorOf("\nlocal _sulva_length = 3"), "2: the name '_sulva_length' is taken");
}

TEST(Script, CompilingTakesNoLongerThanASecond) {
  const std::string head = "local a\nfunction main(op) return a", tail = " or 1 end";
  std::string source = head;
  while (source.size() + tail.size() + 5 <= ScriptText::kMostSource) source += " or a";
  const std::clock_t start = std::clock();
  EXPECT_EQ(ErrorOf(source + tail), "");
  EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 1.0);
  source.resize(ScriptText::kMostSource + 1, ' ');
  EXPECT_THAT(ErrorOf(source), HasSubstr("it is longer than"));
}

TEST(Script, WhatACallMayMakeDoesNotDependOnWhatRanBefore) {
  // How many texts a first call can make, behind a recursion that takes room for the stack.
  const auto goes = [](Cells& cells, int texts) {
    std::vector<double> answer(1), told{static_cast<double>(texts)};
    const std::vector<i32> index(1);
    const std::vector<Vec3d> place(1);
    const ScriptColumn columns[] = {std::span<const double>(told), std::span<const double>(told),
                                    std::span<const i32>(index), std::span<const Vec3d>(place)};
    return cells.runner.Run(0, columns, std::span<double>(answer));
  };
  const std::string source =
      "local function down(n) if n < 1 then return 1 end return 1 + down(n - 1) end\n" +
      Main(
          "local deep, s = down(8000), 'xxxxxxxx' for i = 1, 6 do s = s .. s end\n"
          "for i = 1, cell_value do local t = s .. i end return deep");
  int low = 0, high = 20000;
  while (high - low > 1) {
    Cells cells(source);
    const int middle = (low + high) / 2;
    (goes(cells, middle) ? low : high) = middle;
  }
  EXPECT_GT(low, 1000);
  Cells cells(source);
  for (const int texts : {low, 10, low - 1, low}) EXPECT_TRUE(goes(cells, texts)) << texts;
  EXPECT_FALSE(goes(cells, high)) << "the room that others had made doesn't count";
}

TEST(Script, LimitsDoNotDependOnWhatRanBefore) {
  Cells cells(Main("local n = 0 for i = 1, 5000 do n = n + 1 end return n"));
  for (int run = 0; run < 40; ++run) ASSERT_EQ(cells.Run<double>(8).size(), 8u) << run;
}

TEST(Script, TellsTheMemoryOfTheStatesOfAllWorkers) {
  Cells cells("local t = {} for i = 1, 30000 do t[i] = i end " + Main("return t[5]"));
  EXPECT_GT(cells.runner.Memory(), kMaxWorkers * 30000.0 * 2 * sizeof(double));
  EXPECT_LT(cells.runner.Memory(), kMaxWorkers * static_cast<double>(ScriptState::kMostLoaded));
}

TEST(Script, WorkersHaveStatesOfTheirOwnAndTheFirstErrorCounts) {
  Cells cells(Main("if cell_index == 105 then error('at ' .. cell_index) end return cell_value"));
  EXPECT_EQ(cells.Run<double>(5, 9).size(), 5u);
  EXPECT_TRUE(cells.Run<double>(8, 9).empty());
  EXPECT_TRUE(cells.Run<double>(8, 3).empty());
  EXPECT_EQ(cells.runner.Error().text, "at 105");
  EXPECT_EQ(cells.Run<double>(5, 4).size(), 5u) << "others go on";
  EXPECT_TRUE(cells.Run<double>(5, 3).empty()) << "one that has failed doesn't";
  EXPECT_TRUE(cells.Run<double>(5, kMaxWorkers).empty());
  EXPECT_FALSE(cells.runner.Compile(
      Main("if cell_index == 105 then error('at ' .. cell_index) end return cell_value")));
  EXPECT_TRUE(cells.runner.Compile(Main("return 1")));
  EXPECT_EQ(cells.Run<double>(8, 3).size(), 8u);
}

}  // namespace

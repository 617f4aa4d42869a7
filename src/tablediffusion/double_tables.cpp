// The level bias tables are written as runs, each entry in hundredths. An entry is made as
// hundredths / 100.0, one correctly rounded division, so it is the double nearest the decimal
// value (15.3 stays the double of "15.3", never 15.3 plus accumulated steps).
#include "tablediffusion/double_tables.h"

#include <span>

namespace halftone {
namespace {

// Levels first..last hold start, start + step, ... (hundredths); last_value closes the run so a
// mistyped step or bound fails to compile.
struct Run {
  int first, last, start, step, last_value;
};

constexpr Run Level(int level, int value) { return {level, level, value, 0, value}; }
constexpr Run Flat(int first, int last, int value) { return {first, last, value, 0, value}; }

// Runs must follow one another without gap from level `from` and close at level 255.
constexpr bool RunsCover(std::span<const Run> runs, int from, int to) {
  int next = from;
  for (const Run& r : runs) {
    if (r.first != next || r.last < r.first) return false;
    if (r.start + r.step * (r.last - r.first) != r.last_value) return false;
    next = r.last + 1;
  }
  return next == to + 1;
}

constexpr void Fill(LevelBiasTable& t, std::span<const Run> runs) {
  for (const Run& r : runs)
    for (int v = r.first; v <= r.last; ++v) t[v] = (r.start + r.step * (v - r.first)) / 100.0;
}

constexpr int kLastShadowLevel = 30;

// Levels 0 to 30, shared by the quarter-column and half-column tables.
constexpr Run kShadowRuns[] = {
    Level(0, 0),       Run{1, 10, 100, 100, 1000}, Level(11, 1080), Level(12, 1150),
    Level(13, 1220),   Level(14, 1290),           Level(15, 1360), Level(16, 1420),
    Level(17, 1480),   Run{18, 30, 1530, 50, 2130},
};

constexpr Run kQuarterRuns[] = {
    Flat(31, 206, 2180), Level(207, 2100),     Level(208, 2080),    Run{209, 216, 1980, -100, 1280},
    Flat(217, 240, 1220), Level(241, 1210),    Level(242, 1230),    Flat(243, 245, 1220),
    Flat(246, 248, 1180), Level(249, 1160),    Level(250, 1040),    Level(251, 860),
    Level(252, 660),      Level(253, 460),     Level(254, 250),     Level(255, 0),
};

constexpr Run kHalfRuns[] = {
    Flat(31, 224, 2180), Run{225, 238, 2130, -50, 1480}, Level(239, 1420), Level(240, 1360),
    Level(241, 1290),    Level(242, 1220),              Level(243, 1140), Level(244, 1060),
    Level(245, 970),     Level(246, 880),               Level(247, 790),  Level(248, 700),
    Level(249, 610),     Level(250, 530),               Level(251, 480),  Level(252, 330),
    Level(253, 230),     Level(254, 125),               Level(255, 0),
};

constexpr Run kEveryRuns[] = {
    Level(0, 0),         Level(1, 60),       Level(2, 120),      Level(3, 160),
    Level(4, 200),       Level(5, 250),      Level(6, 300),      Level(7, 350),
    Level(8, 400),       Level(9, 460),      Level(10, 520),     Level(11, 590),
    Level(12, 660),      Level(13, 730),     Level(14, 810),     Level(15, 890),
    Level(16, 970),      Run{17, 46, 1070, 100, 3970},          Flat(47, 188, 4070),
    Level(189, 4040),    Level(190, 4000),   Level(191, 3940),   Level(192, 3780),
    Level(193, 3620),    Run{194, 208, 3560, -60, 2720},        Level(209, 2670),
    Level(210, 2630),    Level(211, 2590),   Level(212, 2560),   Level(213, 2530),
    Level(214, 2490),    Level(215, 2450),   Run{216, 223, 2400, -50, 2050},
    Level(224, 2010),    Level(225, 1980),   Level(226, 1950),   Level(227, 1920),
    Level(228, 1880),    Level(229, 1840),   Level(230, 1800),   Level(231, 1740),
    Run{232, 243, 1650, -90, 660},           Level(244, 590),    Level(245, 520),
    Level(246, 460),     Level(247, 400),    Level(248, 350),    Level(249, 300),
    Level(250, 260),     Level(251, 230),    Level(252, 180),    Level(253, 120),
    Level(254, 60),      Level(255, 0),
};

static_assert(RunsCover(kShadowRuns, 0, kLastShadowLevel));
static_assert(RunsCover(kQuarterRuns, kLastShadowLevel + 1, kLevels - 1));
static_assert(RunsCover(kHalfRuns, kLastShadowLevel + 1, kLevels - 1));
static_assert(RunsCover(kEveryRuns, 0, kLevels - 1));

constexpr LevelBiasTable FromRuns(std::span<const Run> head, std::span<const Run> tail = {}) {
  LevelBiasTable t{};
  Fill(t, head);
  Fill(t, tail);
  return t;
}

// Columns [from, to] that send their diagonal share to the left, in each band of eight rows.
struct ColumnSpan {
  int from, to;
};
constexpr int kMaskBandRows = 8;
constexpr ColumnSpan kLeftSpans[4][3] = {
    {{0, 15}, {48, 63}, {0, -1}},
    {{8, 23}, {40, 55}, {0, -1}},
    {{16, 47}, {0, -1}, {0, -1}},
    {{0, 7}, {24, 39}, {56, 63}},
};

constexpr DiagonalMask MakeDiagonalMask() {
  DiagonalMask m{};
  for (int row = 0; row < kDiagonalMaskRows; ++row)
    for (const ColumnSpan& span : kLeftSpans[row / kMaskBandRows])
      for (int x = span.from; x <= span.to; ++x) m[row][x] = 1;
  return m;
}

}  // namespace

const LevelBiasTable kQuarterColumnBias = FromRuns(kShadowRuns, kQuarterRuns);
const LevelBiasTable kHalfColumnBias = FromRuns(kShadowRuns, kHalfRuns);
const LevelBiasTable kEveryColumnBias = FromRuns(kEveryRuns);
const DiagonalMask kDiagonalMask = MakeDiagonalMask();

}  // namespace halftone

// Built-in tone curves of slots 1-14, kept as the runs they are designed in: each curve is 0 up
// to some input, rises to a plateau and falls back to 0 at 255.
#include <array>
#include <cstdint>
#include <span>

#include "tone/tone.h"

namespace halftone {
namespace {

// Entries first..last run from `from` in steps of `step`; `to` is the value at `last`, kept so
// the compiler can check each run against its description.
struct CurveRun {
  int first, last, from, to, step;
};
constexpr bool RunConsistent(const CurveRun& r) { return r.from + (r.last - r.first) * r.step == r.to; }

template <std::size_t N>
constexpr bool CurveCovers(const std::array<CurveRun, N>& runs) {
  int next = 0;
  for (const CurveRun& r : runs) {
    if (r.first != next || r.last < r.first || !RunConsistent(r)) return false;
    next = r.last + 1;
  }
  return next == 256;
}

constexpr std::array<CurveRun, 5> kSlot1 = {{{0, 101, 0, 0, 0}, {102, 106, 1, 9, 2}, {107, 128, 10, 31, 1},
                                             {129, 224, 31, 31, 0}, {225, 255, 30, 0, -1}}};
constexpr std::array<CurveRun, 15> kSlot2 = {{{0, 98, 0, 0, 0}, {99, 100, 1, 2, 1}, {101, 119, 4, 40, 2},
                                              {120, 122, 41, 43, 1}, {123, 138, 45, 60, 1}, {139, 208, 60, 60, 0},
                                              {209, 220, 59, 48, -1}, {221, 230, 46, 37, -1}, {231, 237, 35, 29, -1},
                                              {238, 241, 27, 24, -1}, {242, 246, 22, 18, -1}, {247, 248, 16, 15, -1},
                                              {249, 250, 13, 12, -1}, {251, 254, 10, 4, -2}, {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 17> kSlot3 = {{{0, 98, 0, 0, 0}, {99, 100, 1, 2, 1}, {101, 119, 4, 40, 2},
                                              {120, 122, 41, 43, 1}, {123, 138, 45, 60, 1}, {139, 208, 60, 60, 0},
                                              {209, 220, 59, 48, -1}, {221, 230, 46, 37, -1}, {231, 232, 37, 36, -1},
                                              {233, 234, 34, 32, -2}, {235, 237, 31, 29, -1}, {238, 240, 27, 25, -1},
                                              {241, 247, 23, 11, -2}, {248, 249, 10, 8, -2}, {250, 251, 7, 5, -2},
                                              {252, 254, 4, 2, -1}, {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 13> kSlot4 = {{{0, 98, 0, 0, 0}, {99, 100, 1, 2, 1}, {101, 119, 4, 40, 2},
                                              {120, 122, 41, 43, 1}, {123, 144, 45, 66, 1}, {145, 208, 66, 66, 0},
                                              {209, 230, 65, 44, -1}, {231, 232, 42, 41, -1}, {233, 234, 39, 37, -2},
                                              {235, 236, 36, 35, -1}, {237, 251, 33, 5, -2}, {252, 254, 4, 2, -1},
                                              {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 10> kSlot5 = {{{0, 98, 0, 0, 0}, {99, 100, 1, 2, 1}, {101, 119, 4, 40, 2},
                                              {120, 122, 41, 43, 1}, {123, 158, 45, 80, 1}, {159, 204, 80, 80, 0},
                                              {205, 224, 79, 60, -1}, {225, 252, 58, 4, -2}, {253, 254, 3, 2, -1},
                                              {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 15> kSlot6 = {{{0, 101, 0, 0, 0}, {102, 106, 1, 9, 2}, {107, 148, 10, 51, 1},
                                              {149, 214, 51, 51, 0}, {215, 227, 50, 38, -1}, {228, 230, 36, 34, -1},
                                              {231, 233, 32, 30, -1}, {234, 236, 28, 26, -1}, {237, 239, 24, 22, -1},
                                              {240, 242, 20, 18, -1}, {243, 245, 16, 14, -1}, {246, 247, 12, 11, -1},
                                              {248, 249, 9, 8, -1}, {250, 251, 6, 5, -1}, {252, 255, 3, 0, -1}}};
constexpr std::array<CurveRun, 17> kSlot7 = {{{0, 101, 0, 0, 0}, {102, 106, 1, 9, 2}, {107, 137, 10, 40, 1},
                                              {138, 145, 42, 49, 1}, {146, 160, 51, 65, 1}, {161, 208, 65, 65, 0},
                                              {209, 228, 64, 45, -1}, {229, 230, 43, 42, -1}, {231, 232, 40, 39, -1},
                                              {233, 234, 37, 35, -2}, {235, 237, 34, 30, -2}, {238, 240, 29, 25, -2},
                                              {241, 243, 24, 20, -2}, {244, 245, 19, 17, -2}, {246, 248, 16, 12, -2},
                                              {249, 251, 11, 7, -2}, {252, 255, 6, 0, -2}}};
constexpr std::array<CurveRun, 5> kSlot8 = {{{0, 64, 0, 0, 0}, {65, 95, 1, 31, 1}, {96, 223, 31, 31, 0},
                                             {224, 254, 30, 0, -1}, {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 13> kSlot9 = {{{0, 66, 0, 0, 0}, {67, 68, 1, 2, 1}, {69, 87, 4, 40, 2},
                                              {88, 90, 41, 43, 1}, {91, 112, 45, 66, 1}, {113, 208, 66, 66, 0},
                                              {209, 230, 65, 44, -1}, {231, 232, 42, 41, -1}, {233, 234, 39, 37, -2},
                                              {235, 236, 36, 35, -1}, {237, 251, 33, 5, -2}, {252, 254, 4, 2, -1},
                                              {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 10> kSlot10 = {{{0, 66, 0, 0, 0}, {67, 68, 1, 2, 1}, {69, 87, 4, 40, 2},
                                               {88, 90, 41, 43, 1}, {91, 126, 45, 80, 1}, {127, 204, 80, 80, 0},
                                               {205, 224, 79, 60, -1}, {225, 252, 58, 4, -2}, {253, 254, 3, 2, -1},
                                               {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 15> kSlot11 = {{{0, 69, 0, 0, 0}, {70, 74, 1, 9, 2}, {75, 116, 10, 51, 1},
                                               {117, 214, 51, 51, 0}, {215, 227, 50, 38, -1}, {228, 230, 36, 34, -1},
                                               {231, 233, 32, 30, -1}, {234, 236, 28, 26, -1}, {237, 239, 24, 22, -1},
                                               {240, 242, 20, 18, -1}, {243, 245, 16, 14, -1}, {246, 247, 12, 11, -1},
                                               {248, 249, 9, 8, -1}, {250, 251, 6, 5, -1}, {252, 255, 3, 0, -1}}};
constexpr std::array<CurveRun, 15> kSlot12 = {{{0, 71, 0, 0, 0}, {72, 76, 1, 9, 2}, {77, 127, 10, 60, 1},
                                               {128, 208, 60, 60, 0}, {209, 227, 59, 41, -1}, {228, 230, 39, 37, -1},
                                               {231, 233, 35, 33, -1}, {234, 236, 31, 29, -1}, {237, 239, 27, 25, -1},
                                               {240, 243, 23, 20, -1}, {244, 245, 18, 16, -2}, {246, 248, 15, 11, -2},
                                               {249, 251, 10, 6, -2}, {252, 254, 5, 1, -2}, {255, 255, 0, 0, 0}}};
constexpr std::array<CurveRun, 10> kSlot13 = {{{0, 71, 0, 0, 0}, {72, 76, 1, 9, 2}, {77, 127, 10, 60, 1},
                                               {128, 216, 60, 60, 0}, {217, 230, 59, 46, -1}, {231, 232, 44, 43, -1},
                                               {233, 234, 41, 39, -2}, {235, 236, 38, 36, -2}, {237, 239, 35, 31, -2},
                                               {240, 255, 30, 0, -2}}};
constexpr std::array<CurveRun, 14> kSlot14 = {{{0, 55, 0, 0, 0}, {56, 60, 1, 9, 2}, {61, 119, 10, 68, 1},
                                               {120, 124, 70, 74, 1}, {125, 127, 76, 78, 1}, {128, 207, 80, 80, 0},
                                               {208, 229, 79, 58, -1}, {230, 237, 56, 42, -2}, {238, 241, 39, 33, -2},
                                               {242, 245, 30, 24, -2}, {246, 248, 21, 17, -2}, {249, 251, 14, 10, -2},
                                               {252, 253, 7, 5, -2}, {254, 255, 2, 0, -2}}};

static_assert(CurveCovers(kSlot1) && CurveCovers(kSlot2) && CurveCovers(kSlot3) && CurveCovers(kSlot4) &&
              CurveCovers(kSlot5) && CurveCovers(kSlot6) && CurveCovers(kSlot7) && CurveCovers(kSlot8) &&
              CurveCovers(kSlot9) && CurveCovers(kSlot10) && CurveCovers(kSlot11) && CurveCovers(kSlot12) &&
              CurveCovers(kSlot13) && CurveCovers(kSlot14),
              "every built-in curve covers 0..255 and each run ends on its stated value");

template <std::size_t N>
ToneCurve Expand(const std::array<CurveRun, N>& runs) {
  ToneCurve c{};
  for (const CurveRun& r : runs) {
    for (int x = r.first; x <= r.last; ++x) {
      c[static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(r.from + (x - r.first) * r.step);
    }
  }
  return c;
}

}  // namespace

ToneCurve BuiltInCurve(int slot) {
  switch (slot) {
    case 1: return Expand(kSlot1);
    case 2: return Expand(kSlot2);
    case 3: return Expand(kSlot3);
    case 4: return Expand(kSlot4);
    case 5: return Expand(kSlot5);
    case 6: return Expand(kSlot6);
    case 7: return Expand(kSlot7);
    case 8: return Expand(kSlot8);
    case 9: return Expand(kSlot9);
    case 10: return Expand(kSlot10);
    case 11: return Expand(kSlot11);
    case 12: return Expand(kSlot12);
    case 13: return Expand(kSlot13);
    case 14: return Expand(kSlot14);
    default: return ToneCurve{};
  }
}

}  // namespace halftone

#include "exports/methods.h"

#include <array>
#include <vector>

#include "exports/instance.h"

namespace halftone {
namespace {

const std::vector<MethodRow>& AllMethods() {
  static const std::vector<MethodRow> all = [] {
    std::vector<MethodRow> rows;
    for (auto family : {SpineMethods(), RandomSplitMethods(), DoubleDiffusionMethods(), TableDiffusionMethods(),
                        ScreeningMethods(), RotatedMethods()})
      rows.insert(rows.end(), family.begin(), family.end());
    return rows;
  }();
  return all;
}

}  // namespace
}  // namespace halftone

extern "C" {

HALFTONE_API int HALFTONE_CALL halftone_method_count(void) {
  return halftone::Guarded([] { return static_cast<int>(halftone::AllMethods().size()); });
}

HALFTONE_API int HALFTONE_CALL halftone_method_get(int index, halftone_method_info* info) {
  return halftone::Guarded([&] {
    const auto& all = halftone::AllMethods();
    if (info == nullptr || index < 0 || static_cast<std::size_t>(index) >= all.size())
      return halftone::kErrOutOfContract;
    *info = all[static_cast<std::size_t>(index)];
    return halftone::kOk;
  });
}

}  // extern "C"

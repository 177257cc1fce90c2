#include "ir/Intrinsics.h"

namespace {

struct IntrinsicRow {
  char const* name;
  bool raises;
};

constexpr IntrinsicRow kIntrinsics[] = {
#define KV_INTRINSIC_ROW(value, name, raises) {name, raises},
    KV_INTRINSICS(KV_INTRINSIC_ROW)
#undef KV_INTRINSIC_ROW
};

}  // namespace

char const* IntrinsicFunctionName(int index) {
  if (index < 0 || index >= kIntrinsicFunctionCount) return "";
  return kIntrinsics[index].name;
}

SimpleVector<string> const& IntrinsicFunctionNames() {
  static SimpleVector<string> const sNames = [] {
    SimpleVector<string> names;
    for (IntrinsicRow const& row : kIntrinsics) names.push_back(string(row.name));
    return names;
  }();
  return sNames;
}

bool IntrinsicFunctionRaisesExceptions(int index) {
  if (index < 0 || index >= kIntrinsicFunctionCount) return false;
  return kIntrinsics[index].raises;
}

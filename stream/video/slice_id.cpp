// The names by which clients ask for slices.
#include "slice_id.h"

#include <algorithm>
#include <climits>
#include <string_view>

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool IsSliceOf(const std::string& sliceId, int camId) {
  constexpr std::string_view kExtension = ".ts";
  std::string_view name = sliceId;
  const std::string directory = std::to_string(camId) + "/";
  if (name.find('/') != std::string_view::npos) {
    if (!name.starts_with(directory)) return false;
    name.remove_prefix(directory.size());
  }
  if (!name.ends_with(kExtension)) return false;
  name.remove_suffix(kExtension.size());
  return !name.empty() && std::all_of(name.begin(), name.end(), IsDigit);
}

int LeadingNumber(const std::string& text) {
  long long number = 0;
  for (auto c = text.begin(); c != text.end() && IsDigit(*c) && number <= INT_MAX; ++c)
    number = number * 10 + (*c - '0');
  return static_cast<int>(std::min<long long>(number, INT_MAX));
}

// The result set behind the row wrappers of the platform interface: rows read out of the records.
#pragma once

#include <string>
#include <vector>

struct DBResult_tag {
  std::vector<const char*> columns;            // names, owned by nobody: literals
  std::vector<std::vector<std::string>> rows;  // a text a column; empty for NULL
};

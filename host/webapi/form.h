// What a client sent as fields: the parameters of query string and form body, the cookies.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace oculora {

constexpr std::size_t kMaxParameters = 200;

// Names and values, decoded, in the order they came. A name that came twice stands there twice; the first counts.
using Fields = std::vector<std::pair<std::string, std::string>>;

// The parameters of `query`, then of `body` (both application/x-www-form-urlencoded; broken percent codes stand for
// themselves). False when there are more than kMaxParameters; `fields` then holds none.
bool ParseParameters(const std::string& query, const std::string& body, Fields& fields);

// The cookies of a Cookie header. Pieces without "=" and cookies beyond kMaxParameters are left out.
Fields ParseCookies(const std::string& header);

// The first value of `name`, case-sensitive; null when there is none.
const std::string* FindField(const Fields& fields, const std::string& name);

}  // namespace oculora

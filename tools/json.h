// JSON with its keys in the order in which they were set. The library's code is instantiated once, in json.cpp.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace kaldb::tool {

using Json = nlohmann::ordered_json;

/// JSON as text on one line; what is not UTF-8 in it is replaced.
std::string dumpJson(const Json& json);
/// Throws a Failure that names `input` when the text is no JSON.
Json parseJson(const std::string& text, const std::string& input);

}  // namespace kaldb::tool

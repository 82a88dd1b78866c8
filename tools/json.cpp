#include "json.h"

#include "failure.h"

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace kaldb::tool {

std::string dumpJson(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json parseJson(const std::string& text, const std::string& input)
{
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw Failure{Exit::wrongUse, "input", input, error.what(), {}};
    }
}

}  // namespace kaldb::tool

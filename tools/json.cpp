#include "json.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <unordered_set>

namespace kaldb::tool {

using Value = nlohmann::ordered_json;

struct Json::Node {
    Value value;
};

namespace {

Scalar scalarOf(const Value& value)
{
    switch (value.type()) {
    case Value::value_t::null: return {};
    case Value::value_t::boolean: return value.get<bool>();
    case Value::value_t::number_integer: return value.get<std::int64_t>();
    case Value::value_t::number_float: return value.get<double>();
    case Value::value_t::string: return value.get<std::string>();
    case Value::value_t::number_unsigned:
        if (value.get<std::uint64_t>() <= std::numeric_limits<std::int64_t>::max())
            return value.get<std::int64_t>();
        [[fallthrough]];
    default: return value.dump(-1, ' ', false, Value::error_handler_t::replace);
    }
}

/// Throws what the parser throws. The parser keeps the last value of a member that an object names twice; nothing may
/// be lost without a word, so that is told as a fault.
Value parseStrictly(const std::string& text, std::string& fault)
{
    std::vector<std::unordered_set<std::string>> names;  // of the objects that are open
    return Value::parse(text, [&](int, Value::parse_event_t event, const Value& parsed) {
        if (event == Value::parse_event_t::object_start)
            names.emplace_back();
        else if (event == Value::parse_event_t::object_end)
            names.pop_back();
        else if (event == Value::parse_event_t::key && !names.back().insert(parsed.get<std::string>()).second)
            fault = fmt::format("member '{}' occurs twice", printable(parsed.get<std::string>()));
        return true;
    });
}

}  // namespace

Json::Json(Node node) : node_(std::make_unique<Node>(std::move(node))) {}
Json::Json() : Json(Node{}) {}
Json::Json(bool value) : Json(Node{value}) {}
Json::Json(double value) : Json(Node{value}) {}
Json::Json(const char* text) : Json(Node{text}) {}
Json::Json(const std::string& text) : Json(Node{text}) {}
Json::Json(Number number)
    : Json(Node{number.withSign ? Value(static_cast<std::int64_t>(number.bits)) : Value(number.bits)})
{
}
Json::Json(std::initializer_list<Member> members) : Json(Node{Value::object()})
{
    for (const Member& member : members)
        set(member.key, member.value);
}
Json Json::object() { return Json(Node{Value::object()}); }
Json Json::array(std::vector<Json> elements)
{
    Json made{Node{Value::array()}};
    for (Json& element : elements)
        made.push(std::move(element));
    return made;
}
Json::Json(const Json& other) : Json(Node{other.node_->value}) {}
Json::Json(Json&& other) noexcept = default;
Json& Json::operator=(Json other) noexcept
{
    node_.swap(other.node_);
    return *this;
}
Json::~Json() = default;

std::optional<Json> Json::tryParse(const std::string& text, std::string& fault)
{
    try {
        Value value = parseStrictly(text, fault);
        if (fault.empty())
            return Json{Node{std::move(value)}};
    } catch (const Value::exception&) {
        fault = "no JSON";
    }
    return std::nullopt;
}

Json Json::parse(const std::string& text, const std::string& input)
{
    std::string fault;
    try {
        Value value = parseStrictly(text, fault);
        if (fault.empty())
            return Json{Node{std::move(value)}};
    } catch (const Value::exception& error) {  // also a number beyond every range
        fault = error.what();
    }
    throw Failure{Exit::wrongUse, "input", input, fault, {}};
}

std::string Json::dump() const { return node_->value.dump(-1, ' ', false, Value::error_handler_t::replace); }

void Json::set(const std::string& key, Json value) { node_->value[key] = std::move(value.node_->value); }
void Json::push(Json value) { node_->value.push_back(std::move(value.node_->value)); }

bool Json::isObject() const { return node_->value.is_object(); }
bool Json::isArray() const { return node_->value.is_array(); }
std::size_t Json::size() const { return node_->value.size(); }
bool Json::contains(const std::string& key) const { return node_->value.contains(key); }

Json Json::operator[](const std::string& key) const
{
    return contains(key) ? Json{Node{node_->value.at(key)}} : Json{};
}

Json Json::operator[](std::size_t index) const
{
    return isArray() && index < size() ? Json{Node{node_->value.at(index)}} : Json{};
}

Json Json::take(const std::string& pointer)
{
    try {
        return Json{Node{std::move(node_->value.at(Value::json_pointer{pointer}))}};
    } catch (const Value::exception&) {
        return {};
    }
}

std::vector<Json> Json::takeElements()
{
    std::vector<Json> elements;
    if (!isArray())
        return elements;
    for (Value& element : node_->value)
        elements.push_back(Json{Node{std::move(element)}});
    node_->value.clear();
    return elements;
}

Scalar Json::scalar() const { return scalarOf(node_->value); }

void Json::members(const std::function<void(const std::string&, Scalar)>& visit) const
{
    for (const auto& member : node_->value.items())
        visit(member.key(), scalarOf(member.value()));
}

bool operator==(const Json& first, const Json& second) { return first.node_->value == second.node_->value; }

}  // namespace kaldb::tool

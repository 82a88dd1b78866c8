// JSON values, with keys in the order in which they were set.
//
// The library that reads and writes them is compiled in json.cpp alone: its templates take longer than all the rest.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kaldb::tool {

/// A value without parts.
using Scalar = std::variant<std::monostate, bool, std::int64_t, double, std::string>;

class Json {
public:
    struct Member;

    /// Null.
    Json();
    Json(bool value);
    Json(double value);
    Json(const char* text);
    Json(const std::string& text);
    template <std::integral Integer>
    Json(Integer value) : Json(Number{static_cast<std::uint64_t>(value), std::signed_integral<Integer>})
    {
    }
    /// An object.
    Json(std::initializer_list<Member> members);
    static Json object();
    static Json array(std::vector<Json> elements = {});
    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    // No JSON is also a text with an object that names a member twice.

    /// None when the text is no JSON, with the reason in `fault`, which comes in empty.
    static std::optional<Json> tryParse(const std::string& text, std::string& fault);
    /// Throws a Failure that names `input` when the text is no JSON.
    static Json parse(const std::string& text, const std::string& input = {});
    /// On one line; what is not UTF-8 in it is replaced.
    std::string dump() const;

    void set(const std::string& key, Json value);
    void push(Json value);

    bool isObject() const;
    bool isArray() const;
    std::size_t size() const;
    bool contains(const std::string& key) const;
    /// A copy of a part; null when there is none.
    Json operator[](const std::string& key) const;
    Json operator[](std::size_t index) const;
    /// The part that a pointer such as "/639-3" leads to; null when there is none. Takes it out of this value.
    Json take(const std::string& pointer);
    /// Copies of the elements of an array.
    std::vector<Json> elements() const { return Json{*this}.takeElements(); }
    /// The elements of an array, which is empty then.
    std::vector<Json> takeElements();
    /// As text when it has parts, or is an integer beyond 64 bits with a sign.
    Scalar scalar() const;
    /// Of a scalar; throws for one of another type.
    std::string text() const { return std::get<std::string>(scalar()); }
    std::int64_t integer() const { return std::get<std::int64_t>(scalar()); }
    /// Calls `visit` with the members of an object.
    void members(const std::function<void(const std::string& key, Scalar value)>& visit) const;

    friend bool operator==(const Json& first, const Json& second);
    friend std::ostream& operator<<(std::ostream& stream, const Json& json) { return stream << json.dump(); }

private:
    struct Number {
        std::uint64_t bits;
        bool withSign;
    };
    struct Node;
    explicit Json(Number number);
    explicit Json(Node node);

    std::unique_ptr<Node> node_;
};

struct Json::Member {
    std::string key;
    Json value;
};

}  // namespace kaldb::tool

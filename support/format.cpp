#include "format.h"

#include <cstdint>

namespace kallib {
namespace {

// Takes any number of units and keeps those that fit.
class Line {
public:
    Line(char16_t* text, std::size_t room) : text_(text), room_(room) {}

    void add(char16_t unit)
    {
        if (length_ + 1 < room_)
            text_[length_] = unit;
        ++length_;
    }
    void add(const char16_t* text)
    {
        for (; *text != u'\0'; ++text)
            add(*text);
    }
    void add(std::uint32_t number, std::uint32_t base, unsigned minimum)
    {
        char16_t digits[10];
        unsigned count = 0;
        for (; number != 0 || count < minimum; number /= base)
            digits[count++] = u"0123456789ABCDEF"[number % base];
        while (count != 0)
            add(digits[--count]);
    }
    void add(std::int32_t number)
    {
        const auto bits = static_cast<std::uint32_t>(number);
        if (number < 0)
            add(u'-');
        add(number < 0 ? 0 - bits : bits, 10, 1);
    }
    std::size_t finish()
    {
        text_[length_ < room_ ? length_ : room_ - 1] = u'\0';
        return length_;
    }

private:
    char16_t* text_;
    std::size_t room_;
    std::size_t length_ = 0;
};

enum class Conversion : unsigned char { none, text, signedNumber, unsignedNumber, hexadecimal };

struct Parsed {
    Conversion conversion = Conversion::none;
    unsigned digits = 1;
    const char16_t* end = nullptr;
};

// What stands behind a percent sign.
Parsed parse(const char16_t* at)
{
    if (at[0] == u's')
        return {Conversion::text, 0, at + 1};
    if (at[0] == u'0' && at[1] >= u'1' && at[1] <= u'9' && at[2] == u'X')
        return {Conversion::hexadecimal, static_cast<unsigned>(at[1] - u'0'), at + 3};
    if (at[0] == u'l')
        ++at;
    if (at[0] == u'd')
        return {Conversion::signedNumber, 1, at + 1};
    if (at[0] == u'u')
        return {Conversion::unsignedNumber, 1, at + 1};
    return {};
}

}  // namespace

std::size_t formatText(char16_t* line, std::size_t room, const char16_t* format, std::va_list arguments)
{
    Line out{line, room};
    while (*format != u'\0') {
        const Parsed parsed = *format == u'%' ? parse(format + 1) : Parsed{};
        if (parsed.conversion == Conversion::none) {
            out.add(*format++);
            continue;
        }
        format = parsed.end;
        if (parsed.conversion == Conversion::text) {
            const char16_t* const text = va_arg(arguments, const char16_t*);
            out.add(text == nullptr ? u"(null)" : text);
        } else if (parsed.conversion == Conversion::signedNumber) {
            out.add(va_arg(arguments, std::int32_t));
        } else {
            out.add(va_arg(arguments, std::uint32_t), parsed.conversion == Conversion::hexadecimal ? 16 : 10,
                    parsed.digits);
        }
    }
    return out.finish();
}

}  // namespace kallib

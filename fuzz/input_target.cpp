// What the command reads from outside: delimited text, JSON lines, a JSON array, plain lines, and JSON text as such.

#include "target.h"

#include "failure.h"
#include "input.h"
#include "json.h"

#include <sstream>

std::vector<std::string> seeds()
{
    const std::string csv = "name,age\n\"a \"\"quoted\"\" name\",7\r\nb,\n",
                      json = R"([{"a":1,"b":null},{"a":[2,"x"],"b":1e9}])";
    const std::string lines = R"({"name":"a","age":7,"x":{"y":true}})"
                              "\n"
                              R"({"name":"\u00e9","age":-1.5})";
    return {std::string(1, '\0') + csv,
            "\x01"
            "a\tb\n1\t2\n",
            "\x02" + lines,
            "\x03" + json,
            "\x04one\ntwo\n",
            "\x05" + csv,
            "\x0B" + json};
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned)
{
    return LLVMFuzzerMutate(data, size, room);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace kaldb::tool;
    if (size == 0)
        return 0;
    const std::string text{reinterpret_cast<const char*>(data) + 1, size - 1};
    InputOptions options;
    options.format = static_cast<InputFormat>(data[0] % 5);
    options.header = data[0] / 5 % 2 == 0;
    options.latin1 = data[0] / 10 % 2 == 1;
    try {
        std::istringstream in{text};
        const InputRows rows = readInput(in, "input", options);
        if (rows.lines.size() != rows.rows.size())
            std::abort();
    } catch (const Failure&) {
    }
    try {
        static_cast<void>(Json::parse(Json::parse(text).dump()));
    } catch (const Failure&) {
    }
    return 0;
}

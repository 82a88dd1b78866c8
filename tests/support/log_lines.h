// What the library logs and traces while an object of this class lives.
#pragma once

#include <kallib/kallib.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace test {

class LogLines {
public:
    LogLines() { kalLogSetSink(&LogLines::take, this); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() { kalLogSetSink(nullptr, nullptr); }

    /// How many lines of the level contain the text.
    long count(uint32_t level, const std::string& text) const
    {
        return std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
            return line.first == level && line.second.find(text) != std::string::npos;
        });
    }
    /// All lines of the level.
    std::string of(uint32_t level) const
    {
        std::string all;
        for (const auto& line : lines_)
            if (line.first == level)
                all += line.second;
        return all;
    }
    void clear() { lines_.clear(); }

private:
    static void take(uint32_t level, const char16_t* text, void* context)
    {
        std::string narrow;
        for (; *text != u'\0'; ++text)
            narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
        static_cast<LogLines*>(context)->lines_.emplace_back(level, narrow);
    }

    std::vector<std::pair<uint32_t, std::string>> lines_;
};

}  // namespace test

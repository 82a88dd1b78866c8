#include "csv.h"

#include "failure.h"

#include <fmt/format.h>

#include <cstdio>

namespace kaldb::tool {

CsvReader::CsvReader(std::istream& in, std::string name, char delimiter)
    : in_(in), name_(std::move(name)), delimiter_(delimiter)
{
    for (const int mark : {0xEF, 0xBB, 0xBF}) {
        if (in_.rdbuf()->sgetc() != mark)
            break;
        in_.rdbuf()->sbumpc();
    }
}

int CsvReader::get()
{
    const int c = in_.rdbuf()->sbumpc();
    if (c == '\n') {
        ++line_;
        column_ = 0;
    } else {
        ++column_;
    }
    return c;
}

void CsvReader::fail(const char* what) const
{
    throw Failure{Exit::wrongUse, "input", name_, fmt::format("line {}, column {}: {}", line_, column_, what), {}};
}

bool CsvReader::field(std::string& text)
{
    text.clear();
    int c = get();
    if (c == '"') {
        for (;;) {
            c = get();
            if (c == EOF)
                fail("a quoted field is not closed");
            if (c == '"') {
                if (in_.rdbuf()->sgetc() != '"')
                    break;
                c = get();
            }
            text += static_cast<char>(c);
        }
        c = get();
        if (c == '\r' && in_.rdbuf()->sgetc() == '\n')
            c = get();
        if (c != delimiter_ && c != '\n' && c != EOF)
            fail("text follows a closing quote");
        return c == delimiter_;
    }
    for (; c != delimiter_ && c != '\n' && c != EOF; c = get()) {
        if (c == '\r' && in_.rdbuf()->sgetc() == '\n')
            continue;
        if (c == '"')
            fail("a quote inside an unquoted field");
        text += static_cast<char>(c);
    }
    return c == delimiter_;
}

bool CsvReader::next(std::vector<std::string>& fields)
{
    fields.clear();
    for (;;) {
        const int c = in_.rdbuf()->sgetc();
        if (c == EOF)
            return false;
        const bool lineEnd = c == '\n' || c == '\r';
        recordLine_ = line_;
        bool more = true;
        while (more)
            more = field(fields.emplace_back());
        if (!lineEnd || fields.size() > 1 || !fields[0].empty())
            return true;
        fields.clear();
    }
}

}  // namespace kaldb::tool

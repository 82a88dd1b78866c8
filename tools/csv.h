// Reads delimited text: quotes, doubled quotes, line breaks inside quotes, CRLF, a byte-order mark.
#pragma once

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

namespace kaldb::tool {

class CsvReader {
public:
    /// `name` is what failures call the input.
    CsvReader(std::istream& in, std::string name, char delimiter = ',');

    /// The next record; false at the end. An empty line outside quotes is no record. Throws a Failure that names line
    /// and column for a quote where none may be, or one that is never closed.
    bool next(std::vector<std::string>& fields);
    /// The line on which the last record began, from 1.
    std::size_t line() const { return recordLine_; }
    const std::string& name() const { return name_; }

private:
    int get();
    bool field(std::string& text);
    [[noreturn]] void fail(const char* what) const;

    std::istream& in_;
    std::string name_;
    char delimiter_;
    std::size_t line_ = 1;
    std::size_t column_ = 0;
    std::size_t recordLine_ = 0;
};

}  // namespace kaldb::tool

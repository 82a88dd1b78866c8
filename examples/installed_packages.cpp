// The machine's own package database, stored and read back byte for byte: keys, long texts with newlines, bulk order.
//
//   installed_packages DATABASE [STATUS-FILE]
#include <kaldb/kaldb.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

struct Entry {
    char name[96];           // "package:architecture"
    std::uint32_t position;  // of the paragraph in the file
    std::uint32_t unused;
    kaldb::stored_text<64> paragraph;
};
using Entries = kaldb::table<Entry, kaldb::key<&Entry::name>>;

struct Paragraph {
    std::string name;
    std::string text;  // with the empty line that ends it
    std::uint32_t position = 0;
};

std::string readFile(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string field(const std::string& paragraph, const std::string& name)
{
    const std::size_t line = ("\n" + paragraph).find("\n" + name + ": ");
    if (line == std::string::npos)
        return "";
    const std::size_t begin = line + name.size() + 2;
    return paragraph.substr(begin, paragraph.find('\n', begin) - begin);
}

std::vector<Paragraph> split(const std::string& file)
{
    std::vector<Paragraph> paragraphs;
    for (std::size_t begin = 0; begin < file.size();) {
        const std::size_t end = file.find("\n\n", begin);
        Paragraph paragraph;
        paragraph.text = file.substr(begin, end == std::string::npos ? end : end + 2 - begin);
        paragraph.name = field(paragraph.text, "Package") + ":" + field(paragraph.text, "Architecture");
        paragraph.position = static_cast<std::uint32_t>(paragraphs.size());
        begin += paragraph.text.size();
        paragraphs.push_back(std::move(paragraph));
    }
    return paragraphs;
}

void store(const char* path, std::vector<Paragraph> paragraphs)
{
    std::sort(paragraphs.begin(), paragraphs.end(),
              [](const Paragraph& first, const Paragraph& second) { return first.name < second.name; });
    kaldb::database db = kaldb::database::open(path);
    Entries entries = Entries::open_or_create(db, "Packages");
    for (const std::size_t i : kaldb::bulk_order(paragraphs.size(), Entries::records_per_page)) {
        Entry entry{};
        kaldb::assign(entry.name, paragraphs[i].name);
        entry.position = paragraphs[i].position;
        entry.paragraph.store(paragraphs[i].text);
        if (!entries.insert(entry)) {
            std::printf("%s is there already\n", entry.name);
            entry.paragraph.erase();
        }
    }
    entries.close();
    db.close();
}

std::string readBack(const char* path, std::size_t count)
{
    kaldb::database db = kaldb::database::open(path);
    Entries entries = Entries::open(db, "Packages");
    std::vector<std::string> texts(count);
    for (const Entry& entry : entries)
        texts.at(entry.position) = entry.paragraph.load();
    entries.close();
    db.close();
    std::string file;
    for (const std::string& text : texts)
        file += text;
    return file;
}

}  // namespace

int main(int argc, char** argv)
try {
    const char* database = argc > 1 ? argv[1] : "installed_packages.kaldb";
    const std::string file = readFile(argc > 2 ? argv[2] : "/var/lib/dpkg/status");
    const std::vector<Paragraph> paragraphs = split(file);
    store(database, paragraphs);
    if (readBack(database, paragraphs.size()) != file) {
        std::fprintf(stderr, "what was read back differs\n");
        return 1;
    }
    std::printf("%zu packages, %zu bytes: read back byte for byte\n", paragraphs.size(), file.size());
} catch (const kaldb::error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}

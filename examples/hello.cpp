// A database, a table and two records.
#include <kaldb/kaldb.hpp>

#include <cstdio>

namespace {

struct Package {
    char name[48];
    std::uint32_t size;
};
using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;

void add(Packages& packages, std::string_view name, std::uint32_t size)
{
    Package package{};
    kaldb::assign(package.name, name);
    package.size = size;
    if (!packages.insert(package))
        std::printf("%s is there already\n", package.name);
}

}  // namespace

int main(int argc, char** argv)
try {
    kaldb::database db = kaldb::database::open(argc > 1 ? argv[1] : "packages.kaldb");
    std::printf("%s database\n", db.is_new() ? "new" : "existing");
    Packages packages = Packages::open_or_create(db, "Packages");
    add(packages, "coreutils", 18062);
    add(packages, "bash", 7164);
    for (const Package& package : packages)
        std::printf("%s %u\n", package.name, package.size);
    if (const auto bash = packages.find("bash"))
        std::printf("bash takes %u KiB\n", bash->size);
    db.close();  // writes everything out and makes the backup: a full disk is reported here
} catch (const kaldb::error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}

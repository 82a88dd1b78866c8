// A typed table: a key made of a member, identifiers, long texts, walks.
#include <kaldb/kaldb.hpp>

#include <cstdio>

namespace {

struct Package {
    kaldb::id id;
    char name[48];
    std::uint32_t size;
    kaldb::stored_text<56> summary;
};
using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;

void add(Packages& packages, std::string_view name, std::uint32_t size, std::string_view summary)
{
    Package package{};
    kaldb::assign(package.name, name);
    package.size = size;
    package.summary.store(summary);  // 56 bytes and more go out of line
    if (!packages.insert(package)) {
        std::printf("%s is there already\n", package.name);
        package.summary.erase();  // no record refers to it
    }
}

void changeSummary(Packages& packages, std::string_view name, std::string_view summary)
{
    std::optional<Package> package = packages.find(name);
    if (!package)
        return;
    kaldb::stored_text<56> old = package->summary;
    package->summary.store(summary);
    packages.update(*package);
    old.erase();  // only now: until the update the table referred to it
}

}  // namespace

int main(int argc, char** argv)
try {
    kaldb::database db = kaldb::database::open(argc > 1 ? argv[1] : "packages.kaldb");
    Packages packages = Packages::open_or_create(db, "Packages");
    add(packages, "bash", 7164, "GNU Bourne Again SHell");
    add(packages, "base-files", 340, "Debian base system miscellaneous files");
    add(packages, "coreutils", 18062,
        "GNU core utilities: the basic file, shell and text manipulation utilities of the GNU operating system");
    changeSummary(packages, "bash", "The shell that most systems of this kind start when a user logs in to them");

    for (const Package& package : packages.beginning("ba"))
        std::printf("%-12s %6u  %s\n", package.name, package.size, package.summary.load().c_str());

    const std::optional<Package> tools = packages.find("coreutils");
    const std::optional<Package> same = packages.find_id(tools->id);
    std::printf("%s has the identifier %llu\n", same->name, static_cast<unsigned long long>(same->id.sequence));

    packages.close();
    db.close();  // the moment at which a full disk is reported
} catch (const kaldb::error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}

// What one run of the command is about, and the verbs that it can be about.
#pragma once

#include "catalogue.h"
#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "schema.h"

#include <functional>
#include <string>
#include <vector>

namespace kaldb::tool {

struct Session {
    bool json = false;          // reports, and failures, as JSON
    std::string file;           // what a failure of the library is about
    std::function<Exit()> run;  // the verb that the command line chose
    Output out;
};

// Each verb has a file of its own, named after it.
void addInfo(CommandLine& line, Session& session);
void addTables(CommandLine& line, Session& session);
void addSchema(CommandLine& line, Session& session);
void addCheck(CommandLine& line, Session& session);
void addPages(CommandLine& line, Session& session);
void addGet(CommandLine& line, Session& session);
void addDump(CommandLine& line, Session& session);
void addLoad(CommandLine& line, Session& session);
void addPut(CommandLine& line, Session& session);
void addDel(CommandLine& line, Session& session);
void addBackup(CommandLine& line, Session& session);
void addRestore(CommandLine& line, Session& session);
void addVersion(CommandLine& line, Session& session);

/// A file opened for looking, with what its catalogue says.
struct OpenFile {
    explicit OpenFile(const std::string& path) : file(path), catalogue(readCatalogue(file)) {}

    PageFile file;
    Catalogue catalogue;
};

/// Looking at rows of a file that somebody writes may give torn answers. Throws a Failure unless `allowed`.
void refuseDirty(const PageFile& file, bool allowed);
/// The table of that name. Throws a Failure when there is none.
const Chain& requireTable(const OpenFile& open, const std::string& name);
/// Throws a Failure for a damage met where an answer depends on the bytes being sound.
[[noreturn]] void failDamaged(const PageFile& file, const Damage& damage);
/// "page 118 slot 3: parent names slot 9"
std::string describe(const Damage& damage);

/// A note on standard error.
void note(const std::string& text);

}  // namespace kaldb::tool

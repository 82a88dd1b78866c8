// kaldb for C++20: databases, typed tables, walks as ranges, texts and variants in records.
//
// Header only; link with the kaldb library. Everything stands on the C interface of <kaldb/kaldb.h> and may be mixed
// with it: native_handle() gives the handles.
//
//     struct Package { kaldb::id id; char name[48]; std::uint32_t size; kaldb::stored_text<56> summary; };
//     using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;
//
//     kaldb::database db = kaldb::database::open("packages.kaldb");
//     Packages t = Packages::open_or_create(db, "Packages");
//     Package p{};
//     kaldb::assign(p.name, "bash");
//     p.size = 7164;
//     p.summary.store("GNU Bourne Again SHell");
//     if (!t.insert(p))
//         std::puts("there already");
//     for (const Package& q : t.from("ba"))
//         std::printf("%s %u\n", q.name, q.size);
//     db.close();
#pragma once

#include <kaldb/cpp/bulk_order.hpp>
#include <kaldb/cpp/database.hpp>
#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/id.hpp>
#include <kaldb/cpp/key.hpp>
#include <kaldb/cpp/log.hpp>
#include <kaldb/cpp/raw_table.hpp>
#include <kaldb/cpp/schema.hpp>
#include <kaldb/cpp/stored_text.hpp>
#include <kaldb/cpp/table.hpp>
#include <kaldb/cpp/text.hpp>
#include <kaldb/cpp/variant_value.hpp>
#include <kaldb/cpp/walk.hpp>
#include <kaldb/kaldb.h>

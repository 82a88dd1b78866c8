// Walks over the pages and records of one chain.
//
// A chain is a tree of pages: a page's prev subtree holds the records before its own, its next subtree those after. A
// damaged tree may share pages or go round in circles, so every page is visited once at most, and what is met instead
// of a sound page is told and left out.
#pragma once

#include "page_view.h"

#include <functional>
#include <string>
#include <vector>

namespace kaldb::tool {

/// What a walk needs to know of a chain.
struct ChainShape {
    PageNumber top = noPage;
    PageNumber first = noPage;  // where a binary chain's list begins
    std::uint32_t recordSize = 0;
    bool binary = false;
};

struct Damage {
    PageNumber page = noPage;
    SlotIndex slot = noSlot;
    std::string code;  // "page.cycle", "btree.order", ...
    std::string text;
};
using DamageSink = std::function<void(Damage)>;

struct VisitedPage {
    PageNumber number;
    std::uint32_t depth;  // the top page has 1
    const Page& bytes;
};

/// Whether a record lies before everything that is wanted.
using Before = std::function<bool(Bytes record)>;
/// Told of a page; false ends the walk.
using PageVisitor = std::function<bool(const VisitedPage&)>;

/// Visits the chain's pages, those of a tree in key order. With `before`, subtrees that lie wholly before the wanted
/// records are left out. Pages that are no page of this chain are told to `damage` instead of `visit`, their children
/// still visited. `met`, if given, has a bit for each page of the file and gets those that the walk reaches.
void walkPages(const PageFile& file, const ChainShape& chain, const PageVisitor& visit, const DamageSink& damage,
               const Before& before = {}, std::vector<bool>* met = nullptr);

struct Record {
    Bytes bytes;
    PageNumber page;
    SlotIndex slot;
};
using RecordVisitor = std::function<bool(const Record&)>;

/// Visits the records of a tree in key order, from the first that is not before the wanted ones.
void walkRecords(const PageFile& file, const ChainShape& chain, const RecordVisitor& visit, const DamageSink& damage,
                 const Before& before = {});

}  // namespace kaldb::tool

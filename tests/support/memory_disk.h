// The support library's files, owner locks and memory for one program: files lie in memory, the disk has an end, a call
// can be made to fail, and every run is held to a budget of steps and to a largest block.
//
// Include it in exactly one source file of a program: its definitions stand before those of the support library.
#pragma once

#include <kallib/kallib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>

namespace disk {

using File = std::shared_ptr<std::string>;

/// What fails: from the call with this number on that one alone, all of its kind, or all.
struct Fault {
    enum Reach { once, itsKind, everything } reach = once;
    std::uint64_t call = 0;  // counted from 1; 0 for none
    std::uint32_t status = KAL_IO_ERROR;
    const char* struck = nullptr;  // the kind of the call that it met
    bool waitFailed = false;       // whether a wait for the disk was among those that failed
};

struct State {
    std::map<std::u16string, File> files;
    std::size_t end = 1 << 20;    // no file grows beyond it
    std::uint32_t largest = ~0u;  // block that may be asked for
    std::uint64_t steps = 0, budget = ~std::uint64_t{0};
    std::unordered_set<void*> blocks;
    std::size_t openFiles = 0;
    std::uint64_t calls = 0;  // since the fault was set
    Fault fault;
};

inline State& state()
{
    static State* const theOne = new State;
    return *theOne;
}

inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

inline void step() { require(++state().steps <= state().budget, "an operation without an end"); }

inline void setFault(const Fault& fault)
{
    state().fault = fault;
    state().calls = 0;
}
/// The status that this call must fail with, or 0.
inline std::uint32_t verdict(const char* kind)
{
    Fault& fault = state().fault;
    if (++state().calls == fault.call)
        fault.struck = kind;
    const bool fails =
        fault.struck != nullptr && (state().calls == fault.call || fault.reach == Fault::everything ||
                                    (fault.reach == Fault::itsKind && std::strcmp(fault.struck, kind) == 0));
    fault.waitFailed = fault.waitFailed || (fails && std::strcmp(kind, "FileSyncW") == 0);
    return fails ? fault.status : 0;
}

inline void* allocate(std::uint32_t size)
{
    require(size <= state().largest, "a block far larger than the file");
    if (verdict("memory") != 0)
        return nullptr;
    void* const block = std::malloc(size == 0 ? 1 : size);
    state().blocks.insert(block);
    return block;
}
inline void release(void* block)
{
    require(block == nullptr || state().blocks.erase(block) == 1, "a block released that is none");
    std::free(block);
}

}  // namespace disk

struct KALFile {
    disk::File bytes;
    std::size_t position = 0;
};
struct KALOwnerLock {
    int unused = 0;
};

extern "C" {

void* kalMemAllocate(uint32_t size, const char*, uint32_t) { return disk::allocate(size); }
void kalMemFree(void* block) { disk::release(block); }
void* kalHandleAllocate(uint32_t size, const char*, uint32_t) { return disk::allocate(size); }
void kalHandleFree(void* handle) { disk::release(handle); }

uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode)
{
    if (const uint32_t fault = disk::verdict("FileOpenW"); fault != 0)
        return fault;
    auto& files = disk::state().files;
    if (mode == KAL_FILE_CREATE && files.count(path) == 0)
        files[path] = std::make_shared<std::string>();
    if (files.count(path) == 0)
        return KAL_FILE_NOT_FOUND;
    *file = new KALFile{files[path], 0};
    ++disk::state().openFiles;
    return KAL_SUCCESS;
}
uint32_t kalFileClose(KALFile* file)
{
    delete file;
    --disk::state().openFiles;
    return disk::verdict("FileClose");  // a failed close closes, too
}
uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length)
{
    if (const uint32_t fault = disk::verdict("FileRead"); fault != 0)
        return fault;
    disk::step();
    const std::string& bytes = *file->bytes;
    const std::size_t there = bytes.size() - std::min(bytes.size(), file->position);
    *length = static_cast<uint32_t>(std::min<std::size_t>(*length, there));
    if (*length > 0)
        std::memcpy(buffer, bytes.data() + file->position, *length);
    file->position += *length;
    return KAL_SUCCESS;
}
uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length)
{
    std::string& bytes = *file->bytes;
    const uint32_t torn = disk::verdict("FileWrite");
    if (torn != 0)
        *length /= 2;
    const std::size_t end = file->position + *length;
    if (end > disk::state().end) {
        *length = 0;
        return KAL_NO_SPACE;
    }
    if (bytes.size() < end)
        bytes.resize(end);
    std::memcpy(bytes.data() + file->position, buffer, *length);
    file->position = end;
    return torn;
}
uint32_t kalFileSeek(KALFile* file, uint64_t offset)
{
    if (const uint32_t fault = disk::verdict("FileSeek"); fault != 0)
        return fault;
    file->position = offset;
    return KAL_SUCCESS;
}
uint32_t kalFileGetSize(KALFile* file, uint64_t* size)
{
    if (const uint32_t fault = disk::verdict("FileGetSize"); fault != 0)
        return fault;
    *size = file->bytes->size();
    return KAL_SUCCESS;
}
uint32_t kalFileFlush(KALFile*) { return disk::verdict("FileFlush"); }
uint32_t kalFileCopyW(const char16_t* from, const char16_t* to)
{
    if (const uint32_t fault = disk::verdict("FileCopyW"); fault != 0)
        return fault;
    auto& files = disk::state().files;
    if (files.count(from) == 0)
        return KAL_FILE_NOT_FOUND;
    files[to] = std::make_shared<std::string>(*files[from]);
    return KAL_SUCCESS;
}
uint32_t kalFileDeleteW(const char16_t* path)
{
    if (const uint32_t fault = disk::verdict("FileDeleteW"); fault != 0)
        return fault;
    return disk::state().files.erase(path) == 0 ? KAL_FILE_NOT_FOUND : KAL_SUCCESS;
}
uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists)
{
    if (const uint32_t fault = disk::verdict("FileExistsW"); fault != 0)
        return fault;
    *exists = disk::state().files.count(path) != 0 ? 1 : 0;
    return KAL_SUCCESS;
}
uint32_t kalFileRename(const char16_t* from, const char16_t* to)
{
    if (const uint32_t fault = disk::verdict("FileRename"); fault != 0)
        return fault;
    auto& files = disk::state().files;
    if (files.count(from) == 0)
        return KAL_FILE_NOT_FOUND;
    files[to] = files[from];
    files.erase(from);
    return KAL_SUCCESS;
}
uint32_t kalFileSyncW(const char16_t* path)
{
    if (const uint32_t fault = disk::verdict("FileSyncW"); fault != 0)
        return fault;
    return disk::state().files.count(path) == 0 ? KAL_FILE_NOT_FOUND : KAL_SUCCESS;
}
uint32_t kalOwnerLockAcquire(const char16_t*, KALOwnerLock** lock)
{
    if (const uint32_t fault = disk::verdict("OwnerLockAcquire"); fault != 0)
        return fault;
    static KALOwnerLock theOne;
    *lock = &theOne;
    return KAL_SUCCESS;
}
uint32_t kalOwnerLockSettle(KALOwnerLock*) { return KAL_SUCCESS; }
uint32_t kalOwnerLockRelease(KALOwnerLock*) { return KAL_SUCCESS; }

}  // extern "C"

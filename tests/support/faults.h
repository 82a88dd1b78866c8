// The support library with faults: fails the n-th call, knows what is still allocated and open.
//
// Include it in exactly one source file of a test program. Its definitions stand before those of the support library,
// a separate shared library, and forward to them. A failing call does nothing but
//   kalFileClose    closes all the same: a handle is gone after a failed close (kalStatsDeinitialize likewise)
//   kalFileWrite    writes half of the bytes when `torn` is set
//
//   faults::reset();
//   faults::failAt("kalFileWrite", 3, KAL_NO_SPACE);   // the third write from here on
//   faults::failAt(faults::anyCall, 7, KAL_IO_ERROR);  // the seventh call of whatever kind
#pragma once

#include <kallib/kallib.h>

#include <dlfcn.h>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace faults {

inline constexpr const char* anyCall = "";

struct State {
    std::string failing;
    unsigned countdown = 0;  // 0: no fault ahead
    uint32_t status = 0;
    bool forGood = false;
    bool torn = false;
    bool struck = false;
    std::set<void*> blocks, files;            // what is allocated and open, over the life of the program
    std::function<void(const char*)> before;  // told of each call
    std::function<void(KALFile*, uint64_t, const void*, uint32_t)> written;  // of each write done, with its offset
    std::map<KALFile*, uint64_t> position;
};

inline State& state()
{
    static State* theOne = new State;  // outlives every static object
    return *theOne;
}

/// Forgets the fault, not what is allocated and open.
inline void reset()
{
    State& s = state();
    s.countdown = 0;
    s.torn = s.struck = false;
    s.before = nullptr;
    s.written = nullptr;
}

inline void failAt(const char* call, unsigned nth, uint32_t status, bool forGood = false)
{
    State& s = state();
    s.failing = call;
    s.countdown = nth;
    s.status = status;
    s.forGood = forGood;
    s.struck = false;
}

/// Whether the fault ahead came to pass.
inline bool struck() { return state().struck; }
inline std::size_t liveBlocks() { return state().blocks.size(); }
inline std::size_t openFiles() { return state().files.size(); }

/// Whether the next call of this name meets the fault ahead.
inline bool strikesNext(const char* call)
{
    return state().countdown == 1 && (state().failing == anyCall || state().failing == call);
}

/// The status that this call must fail with, or 0.
inline uint32_t verdict(const char* call)
{
    State& s = state();
    if (s.before)
        s.before(call);
    if (s.countdown == 0 || (s.failing != anyCall && s.failing != call))
        return 0;
    const bool strikes = strikesNext(call);
    s.struck = s.struck || strikes;
    if (!strikes || !s.forGood)
        --s.countdown;
    return strikes ? s.status : 0;
}

template <class Function>
Function* real(const char* name, Function*)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

inline void* allocate(const char* call, decltype(kalMemAllocate)* real, uint32_t size, const char* file, uint32_t line)
{
    void* const block = verdict(call) != 0 ? nullptr : real(size, file, line);
    if (block != nullptr)
        state().blocks.insert(block);
    return block;
}

}  // namespace faults

#define KALDB_REAL(function) faults::real(#function, &function)
#define KALDB_FORWARD(function, ...)                                                                                   \
    if (uint32_t fault = faults::verdict(#function); fault != 0)                                                       \
        return fault;                                                                                                  \
    return KALDB_REAL(function)(__VA_ARGS__)

extern "C" {

void* kalMemAllocate(uint32_t size, const char* file, uint32_t line)
{
    return faults::allocate("kalMemAllocate", KALDB_REAL(kalMemAllocate), size, file, line);
}

void kalMemFree(void* block)
{
    faults::state().blocks.erase(block);
    KALDB_REAL(kalMemFree)(block);
}

void* kalHandleAllocate(uint32_t size, const char* file, uint32_t line)
{
    return faults::allocate("kalHandleAllocate", KALDB_REAL(kalHandleAllocate), size, file, line);
}

void kalHandleFree(void* handle)
{
    faults::state().blocks.erase(handle);
    KALDB_REAL(kalHandleFree)(handle);
}

uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode)
{
    if (uint32_t fault = faults::verdict("kalFileOpenW"); fault != 0)
        return fault;
    const uint32_t status = KALDB_REAL(kalFileOpenW)(path, file, mode);
    if (status == KAL_SUCCESS) {
        faults::state().files.insert(*file);
        faults::state().position[*file] = 0;
    }
    return status;
}

uint32_t kalFileClose(KALFile* file)
{
    const uint32_t fault = faults::verdict("kalFileClose");
    faults::state().files.erase(file);
    const uint32_t status = KALDB_REAL(kalFileClose)(file);
    return fault != 0 ? fault : status;
}

uint32_t kalFileSeek(KALFile* file, uint64_t offset)
{
    faults::state().position[file] = offset;
    KALDB_FORWARD(kalFileSeek, file, offset);
}

uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length)
{
    if (uint32_t fault = faults::verdict("kalFileRead"); fault != 0)
        return fault;
    const uint32_t status = KALDB_REAL(kalFileRead)(file, buffer, length);
    if (status == KAL_SUCCESS)
        faults::state().position[file] += *length;
    return status;
}

uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length)
{
    faults::State& s = faults::state();
    const uint32_t fault = faults::verdict("kalFileWrite");
    if (fault != 0 && !s.torn)
        return fault;
    if (fault != 0)
        *length /= 2;
    const uint32_t status = KALDB_REAL(kalFileWrite)(file, buffer, length);
    if (status == KAL_SUCCESS && s.written)
        s.written(file, s.position[file], buffer, *length);
    s.position[file] += *length;
    return fault != 0 ? fault : status;
}

uint32_t kalFileGetSize(KALFile* file, uint64_t* size) { KALDB_FORWARD(kalFileGetSize, file, size); }
uint32_t kalFileFlush(KALFile* file) { KALDB_FORWARD(kalFileFlush, file); }
uint32_t kalFileCopyW(const char16_t* from, const char16_t* to) { KALDB_FORWARD(kalFileCopyW, from, to); }
uint32_t kalFileDeleteW(const char16_t* path) { KALDB_FORWARD(kalFileDeleteW, path); }
uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists) { KALDB_FORWARD(kalFileExistsW, path, exists); }
uint32_t kalFileRename(const char16_t* from, const char16_t* to) { KALDB_FORWARD(kalFileRename, from, to); }
uint32_t kalFileSyncW(const char16_t* path) { KALDB_FORWARD(kalFileSyncW, path); }

uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData, KALEnumerator** enumerator)
{
    KALDB_FORWARD(kalEnumeratorCreate, callbacks, userData, enumerator);
}

uint32_t kalMultiByteToWideChar(const char* source, uint32_t sourceLength, char16_t* destination, uint32_t chars)
{
    if (faults::verdict("kalMultiByteToWideChar") != 0)
        return KAL_CONVERSION_FAILED;
    return KALDB_REAL(kalMultiByteToWideChar)(source, sourceLength, destination, chars);
}

uint32_t kalWideCharToMultiByte(const char16_t* source, uint32_t sourceLength, char* destination, uint32_t bytes)
{
    if (faults::verdict("kalWideCharToMultiByte") != 0)
        return KAL_CONVERSION_FAILED;
    return KALDB_REAL(kalWideCharToMultiByte)(source, sourceLength, destination, bytes);
}

uint32_t kalStatsInitialize(uint32_t count, const char16_t* const* names, KALStats** stats)
{
    KALDB_FORWARD(kalStatsInitialize, count, names, stats);
}

uint32_t kalStatsDeinitialize(KALStats* stats)
{
    const uint32_t fault = faults::verdict("kalStatsDeinitialize");
    const uint32_t status = KALDB_REAL(kalStatsDeinitialize)(stats);
    return fault != 0 ? fault : status;
}

uint32_t kalOwnerLockAcquire(const char16_t* path, KALOwnerLock** lock)
{
    KALDB_FORWARD(kalOwnerLockAcquire, path, lock);
}

}  // extern "C"

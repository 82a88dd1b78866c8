// One owner of a database at a time, held by the kernel for as long as the process lives.
//
// The owner holds a lock on the database file itself. During start-up that is not enough: the file may not exist yet,
// and a restore puts another file in its place. So a lock on the directory is taken first and kept until the file is
// the one that stays:
//
//     acquire   lock the directory, then the file if there is one
//               ... the caller restores or creates the file ...
//     settle    lock the file that is there now, let go of the old one and of the directory
//     release   let go of everything
//
// Whoever starts meanwhile waits for the directory and then meets either a locked file or one that is free.
#include "live_list.h"
#include "os.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

using kallib::failed;
using kallib::guarded;
using kallib::LiveList;
using kallib::Status;
namespace os = kallib::os;

namespace {

// An open file, and the lock on it, which ends with it. A forked child has the open file too, and with it the lock: so
// the owner unlocks before it closes, and a child only closes.
struct LockedFile {
    os::NativeFile native = os::noFile;
    os::Identity identity;
    std::int64_t owner = os::processNumber();

    LockedFile() = default;
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;
    ~LockedFile() { drop(); }

    bool held() const { return native != os::noFile; }
    void drop()
    {
        if (held() && owner == os::processNumber())
            os::unlock(native);
        if (held())
            static_cast<void>(os::closeFile(std::exchange(native, os::noFile)));
    }
    void swap(LockedFile& other)
    {
        std::swap(native, other.native);
        std::swap(identity, other.identity);
    }
};

}  // namespace

struct KALOwnerLock {
    std::string name;
    LockedFile directory;  // until settled
    LockedFile file;       // none while the file is missing
    KALOwnerLock* next = nullptr;
};

namespace {

LiveList<KALOwnerLock> locks;

// Starting takes as long as a restore of the whole database, so a second starter waits, but not for ever.
constexpr uint32_t pauseMilliseconds = 10;
constexpr uint32_t longestWaitMilliseconds = 30'000;

Status waitForLock(os::NativeFile file)
{
    Status status = os::tryLock(file);
    for (uint32_t waited = 0; status == Status::fileInUse && waited < longestWaitMilliseconds;
         waited += pauseMilliseconds) {
        os::sleepMilliseconds(pauseMilliseconds);
        status = os::tryLock(file);
    }
    return status;
}

Status lockDirectory(KALOwnerLock& lock)
{
    LockedFile& directory = lock.directory;
    if (Status s = os::openDirectoryForLock(lock.name, directory.native, directory.identity); failed(s))
        return s;
    // This very thread would have to let go of it.
    const auto isStartingThere = [&](const KALOwnerLock& other) {
        return other.directory.held() && other.directory.owner == directory.owner &&
               other.directory.identity == directory.identity;
    };
    return locks.any(isStartingThere) ? Status::fileInUse : waitForLock(directory.native);
}

Status acquire(const char16_t* path, KALOwnerLock& lock)
{
    if (Status s = os::resolveName(path, lock.name); failed(s))
        return s;
    if (Status s = lockDirectory(lock); failed(s))
        return s;
    const Status s = os::openForLock(lock.name, lock.file.native, lock.file.identity);
    if (s == Status::fileNotFound)
        return Status::success;
    return failed(s) ? s : os::tryLock(lock.file.native);
}

// A failure leaves the lock as it was.
Status settle(KALOwnerLock& lock)
{
    LockedFile now;
    if (Status s = os::openForLock(lock.name, now.native, now.identity); failed(s))
        return s;
    const bool same = lock.file.held() && lock.file.identity == now.identity;
    if (!same) {
        if (Status s = os::tryLock(now.native); failed(s))
            return s;
        lock.file.swap(now);
    }
    lock.directory.drop();
    return Status::success;
}

}  // namespace

extern "C" uint32_t kalOwnerLockAcquire(const char16_t* path, KALOwnerLock** lock)
{
    return guarded([&] {
        if (lock == nullptr)
            return Status::invalidArgument;
        *lock = nullptr;
        if (path == nullptr)
            return Status::invalidArgument;
        if (*path == u'\0')
            return Status::fileNotFound;
        auto acquired = std::make_unique<KALOwnerLock>();
        if (Status s = acquire(path, *acquired); failed(s))
            return s;
        *lock = locks.add(std::move(acquired));
        return Status::success;
    });
}

extern "C" uint32_t kalOwnerLockSettle(KALOwnerLock* lock)
{
    return guarded([&] {
        if (!locks.contains(lock) || !lock->directory.held())
            return Status::invalidArgument;
        return settle(*lock);
    });
}

extern "C" uint32_t kalOwnerLockRelease(KALOwnerLock* lock)
{
    return guarded([&] { return locks.remove(lock) == nullptr ? Status::invalidArgument : Status::success; });
}

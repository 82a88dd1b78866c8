// Files: the position of each, and the checks before the operating system is asked.
#include "live_list.h"
#include "os.h"

#include <memory>
#include <utility>

using kallib::failed;
using kallib::guarded;
using kallib::Status;
namespace os = kallib::os;

struct KALFile {
    os::NativeFile native = os::noFile;
    uint64_t position = 0;
    KALFile* next = nullptr;
};

namespace {

kallib::LiveList<KALFile> openFiles;

bool isOpen(const KALFile* file) { return openFiles.contains(file); }

constexpr bool isMode(uint32_t mode)
{
    return mode == KAL_FILE_READ || mode == KAL_FILE_READ_WRITE || mode == KAL_FILE_CREATE;
}

}  // namespace

extern "C" uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode)
{
    return guarded([&] {
        if (file == nullptr)
            return Status::invalidArgument;
        *file = nullptr;
        if (path == nullptr || !isMode(mode))
            return Status::invalidArgument;
        auto opened = std::make_unique<KALFile>();
        if (Status s = os::openFile(path, mode, opened->native); failed(s))
            return s;
        *file = openFiles.add(std::move(opened));
        return Status::success;
    });
}

extern "C" uint32_t kalFileClose(KALFile* file)
{
    return guarded([&] {
        const auto closed = openFiles.remove(file);
        return closed == nullptr ? Status::invalidArgument : os::closeFile(closed->native);
    });
}

extern "C" uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length)
{
    return guarded([&] {
        if (buffer == nullptr || length == nullptr || !isOpen(file))
            return Status::invalidArgument;
        const uint32_t wanted = *length;
        *length = 0;
        uint32_t got = 0;
        if (Status s = os::readAt(file->native, file->position, buffer, wanted, got); failed(s))
            return s;
        file->position += got;
        *length = got;
        return Status::success;
    });
}

extern "C" uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length)
{
    return guarded([&] {
        if (buffer == nullptr || length == nullptr || !isOpen(file))
            return Status::invalidArgument;
        const uint32_t wanted = *length;
        *length = 0;
        if (wanted > os::maxOffset - file->position)
            return Status::noSpace;
        if (Status s = os::writeAt(file->native, file->position, buffer, wanted); failed(s))
            return s;
        file->position += wanted;
        *length = wanted;
        return Status::success;
    });
}

extern "C" uint32_t kalFileSeek(KALFile* file, uint64_t offset)
{
    if (offset > os::maxOffset || !isOpen(file))
        return KAL_INVALID_ARGUMENT;
    file->position = offset;
    return KAL_SUCCESS;
}

extern "C" uint32_t kalFileGetSize(KALFile* file, uint64_t* size)
{
    return guarded([&] {
        if (size == nullptr || !isOpen(file))
            return Status::invalidArgument;
        return os::fileSize(file->native, *size);
    });
}

// Every write has gone to the system already.
extern "C" uint32_t kalFileFlush(KALFile* file) { return isOpen(file) ? KAL_SUCCESS : KAL_INVALID_ARGUMENT; }

extern "C" uint32_t kalFileCopyW(const char16_t* source, const char16_t* destination)
{
    return guarded([&] {
        if (source == nullptr || destination == nullptr)
            return Status::invalidArgument;
        return os::copyFile(source, destination);
    });
}

extern "C" uint32_t kalFileDeleteW(const char16_t* path)
{
    return guarded([&] { return path == nullptr ? Status::invalidArgument : os::deleteFile(path); });
}

extern "C" uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists)
{
    return guarded([&] {
        if (path == nullptr || exists == nullptr)
            return Status::invalidArgument;
        bool found = false;
        if (Status s = os::fileExists(path, found); failed(s))
            return s;
        *exists = found ? 1 : 0;
        return Status::success;
    });
}

extern "C" uint32_t kalFileRename(const char16_t* oldPath, const char16_t* newPath)
{
    return guarded([&] {
        if (oldPath == nullptr || newPath == nullptr)
            return Status::invalidArgument;
        return os::renameFile(oldPath, newPath);
    });
}

extern "C" uint32_t kalFileSyncW(const char16_t* path)
{
    return guarded([&] { return path == nullptr ? Status::invalidArgument : os::syncFile(path); });
}

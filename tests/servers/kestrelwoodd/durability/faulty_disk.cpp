#include "tests/servers/kestrelwoodd/durability/faulty_disk.h"

#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "tests/servers/kestrelwoodd/durability/unsynchronised.h"

namespace ksw::daemon::test {

namespace {

/// What happens, and when.
struct Plan {
    unsigned nth = 0;  // 0: nothing
    unsigned accesses = 0;
    unsigned seen = 0;
    int code = SQLITE_OK;
    bool isForGood = false;
    std::string ending;
    std::optional<Death> death;
    unsigned seed = 0;
};

struct State {
    sqlite3_vfs* real = nullptr;
    sqlite3_vfs vfs{};
    Plan plan;
    Unsynchronised unsynchronised;
};

/// Lives as long as the disk.
State* state = nullptr;

struct File {
    sqlite3_file base;
    const char* path;  // the library keeps it as long as the file is open
    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

File* fileOf(sqlite3_file* file) {
    return reinterpret_cast<File*>(file);
}

/// Whether the access is to fail now.
bool isDue(Access access, const char* path) {
    Plan& plan = state->plan;
    if ((plan.accesses & access) == 0 || !std::string_view(path == nullptr ? "" : path).ends_with(plan.ending)) {
        return false;
    }
    ++plan.seen;
    return plan.nth != 0 && (plan.seen == plan.nth || (plan.isForGood && plan.seen > plan.nth));
}

[[noreturn]] void dieNow(Death death, unsigned seed) {
    if (death != Death::Killed) {
        state->unsynchronised.lose(death, seed);
    }
    kill(getpid(), SIGKILL);
    _exit(1);
}

int result() {
    if (state->plan.death) {
        dieNow(*state->plan.death, state->plan.seed);
    }
    return state->plan.code;
}

int doClose(sqlite3_file* file) {
    return fileOf(file)->real()->pMethods->xClose(fileOf(file)->real());
}

int doRead(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    File* const shim = fileOf(file);
    if (isDue(kRead, shim->path)) {
        return result();
    }
    return shim->real()->pMethods->xRead(shim->real(), bytes, size, offset);
}

int passOnWrite(File* file, const void* bytes, int size, sqlite3_int64 offset) {
    if (file->path != nullptr) {
        state->unsynchronised.wrote(file->path, bytes, static_cast<std::size_t>(size),
                                    static_cast<std::size_t>(offset));
    }
    return file->real()->pMethods->xWrite(file->real(), bytes, size, offset);
}

int doWrite(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    File* const shim = fileOf(file);
    if (isDue(kWrite, shim->path)) {
        passOnWrite(shim, bytes, size / 2, offset);
        return result();
    }
    return passOnWrite(shim, bytes, size, offset);
}

int doTruncate(sqlite3_file* file, sqlite3_int64 size) {
    File* const shim = fileOf(file);
    if (isDue(kTruncate, shim->path)) {
        return result();
    }
    if (shim->path != nullptr) {
        state->unsynchronised.cut(shim->path, static_cast<std::size_t>(size));
    }
    return shim->real()->pMethods->xTruncate(shim->real(), size);
}

int doSync(sqlite3_file* file, int flags) {
    File* const shim = fileOf(file);
    if (isDue(kSync, shim->path)) {
        state->unsynchronised.failed(shim->path == nullptr ? "" : shim->path);
        return result();
    }
    if (shim->path != nullptr) {
        state->unsynchronised.synchronised(shim->path);
    }
    return shim->real()->pMethods->xSync(shim->real(), flags);
}

int doMapSharedMemory(sqlite3_file* file, int region, int size, int extends, void volatile** memory) {
    File* const shim = fileOf(file);
    if (isDue(kSharedMemory, shim->path)) {
        *memory = nullptr;
        return result();
    }
    return shim->real()->pMethods->xShmMap(shim->real(), region, size, extends, memory);
}

/// Passes a call on to the file below.
template <auto kMethod, class... Arguments>
auto passOn(sqlite3_file* file, Arguments... arguments) {
    sqlite3_file* const real = fileOf(file)->real();
    return (real->pMethods->*kMethod)(real, arguments...);
}

constexpr sqlite3_io_methods kMethods = {
    2,
    doClose,
    doRead,
    doWrite,
    doTruncate,
    doSync,
    passOn<&sqlite3_io_methods::xFileSize, sqlite3_int64*>,
    passOn<&sqlite3_io_methods::xLock, int>,
    passOn<&sqlite3_io_methods::xUnlock, int>,
    passOn<&sqlite3_io_methods::xCheckReservedLock, int*>,
    passOn<&sqlite3_io_methods::xFileControl, int, void*>,
    passOn<&sqlite3_io_methods::xSectorSize>,
    passOn<&sqlite3_io_methods::xDeviceCharacteristics>,
    doMapSharedMemory,
    passOn<&sqlite3_io_methods::xShmLock, int, int, int>,
    passOn<&sqlite3_io_methods::xShmBarrier>,
    passOn<&sqlite3_io_methods::xShmUnmap, int>,
    nullptr,
    nullptr,
};

int doOpen(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* flagsOut) {
    File* const shim = fileOf(file);
    shim->base.pMethods = nullptr;
    shim->path = path;
    if (isDue(kOpen, path)) {
        return result();
    }
    if (path != nullptr) {
        state->unsynchronised.opened(path);
    }
    const int code = state->real->xOpen(state->real, path, shim->real(), flags, flagsOut);
    if (shim->real()->pMethods != nullptr) {
        shim->base.pMethods = &kMethods;
    }
    return code;
}

int doDelete(sqlite3_vfs*, const char* path, int syncsFolder) {
    if (isDue(kDelete, path)) {
        return result();
    }
    if (path != nullptr) {
        state->unsynchronised.removed(path);
    }
    return state->real->xDelete(state->real, path, syncsFolder);
}

}  // namespace

const int kSynchronisationFailed = SQLITE_IOERR_FSYNC;

FaultyDisk::FaultyDisk() {
    state = new State;
    state->real = sqlite3_vfs_find(nullptr);
    state->vfs = *state->real;
    state->vfs.zName = "faulty";
    state->vfs.pNext = nullptr;
    state->vfs.szOsFile = static_cast<int>(sizeof(File)) + state->real->szOsFile;
    state->vfs.xOpen = doOpen;
    state->vfs.xDelete = doDelete;
    sqlite3_vfs_register(&state->vfs, 1);
}

FaultyDisk::~FaultyDisk() {
    sqlite3_vfs_unregister(&state->vfs);
    sqlite3_vfs_register(state->real, 1);
    delete state;
    state = nullptr;
}

void FaultyDisk::failNth(unsigned nth, unsigned accesses, int code, bool forGood) {
    failNthTo("", nth, accesses, code, forGood);
}

void FaultyDisk::failNthTo(std::string_view ending, unsigned nth, unsigned accesses, int code, bool forGood) {
    state->plan = Plan{nth, accesses, 0, code, forGood, std::string(ending), std::nullopt, 0};
}

void FaultyDisk::dieAtNth(unsigned nth, Death death, unsigned seed) {
    state->plan = Plan{nth, kChanging, 0, SQLITE_OK, false, "", death, seed};
}

void FaultyDisk::die(Death death, unsigned seed) {
    dieNow(death, seed);
}

void FaultyDisk::heal() {
    state->plan.nth = 0;
}

unsigned FaultyDisk::count() const {
    return state->plan.seen;
}

}  // namespace ksw::daemon::test

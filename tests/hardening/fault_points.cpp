// The fault points: a SQLite VFS over the default one, SQLite's allocator, and operator new.
#include "hardening/fault_points.h"

#include <sqlite3.h>

#include <cstdlib>
#include <new>

namespace {

struct {
  bool armed = false;
  FaultPoint::Kind kind = FaultPoint::kFile;
  long left = 0;
  bool persists = false;
  bool hit = false;
} fault;

bool Fails(FaultPoint::Kind kind) {
  if (!fault.armed || fault.kind != kind) return false;
  --fault.left;
  const bool fails = fault.left == 0 || (fault.persists && fault.left < 0);
  fault.hit |= fails;
  return fails;
}

int FileError(int error) {
  if (Fails(FaultPoint::kFile)) return error;
  if (error == SQLITE_IOERR_WRITE && Fails(FaultPoint::kDiskFull)) return SQLITE_FULL;
  return error == SQLITE_IOERR_LOCK && Fails(FaultPoint::kBusy) ? SQLITE_BUSY : SQLITE_OK;
}

// ---- Files: ours begins with SQLite's part of a file, behind it lies the default VFS's own file ----

sqlite3_vfs* realVfs = nullptr;
sqlite3_mem_methods realMemory;

sqlite3_file* Real(sqlite3_file* file) { return file + 1; }

// Calls the method of the real file, or of the real VFS, unless it is to fail.
template <auto kMethod, int kError>
struct Method;
template <class... Args, int (*sqlite3_io_methods::*kMethod)(sqlite3_file*, Args...), int kError>
struct Method<kMethod, kError> {
  static int Call(sqlite3_file* file, Args... args) {
    if (const int error = kError == SQLITE_OK ? SQLITE_OK : FileError(kError)) return error;
    return (Real(file)->pMethods->*kMethod)(Real(file), args...);
  }
};
template <class... Args, int (*sqlite3_vfs::*kMethod)(sqlite3_vfs*, Args...), int kError>
struct Method<kMethod, kError> {
  static int Call(sqlite3_vfs*, Args... args) {
    const int error = FileError(kError);
    return error ? error : (realVfs->*kMethod)(realVfs, args...);
  }
};
using Io = sqlite3_io_methods;

// Comes behind the commit at the earliest: it can be reported, but nothing can be undone any more.
int Unlock(sqlite3_file* file, int level) {
  const int result = Real(file)->pMethods->xUnlock(Real(file), level);
  const int error = FileError(SQLITE_IOERR_UNLOCK);
  return error ? error : result;
}

// Giving a lock on shared memory back has no failure that SQLite acts upon; taking one has.
int ShmLock(sqlite3_file* file, int offset, int count, int flags) {
  if (const int error = flags & SQLITE_SHM_LOCK ? FileError(SQLITE_IOERR_SHMLOCK) : SQLITE_OK) return error;
  return Real(file)->pMethods->xShmLock(Real(file), offset, count, flags);
}

const sqlite3_io_methods kMethods = {
    3,
    Method<&Io::xClose, SQLITE_OK>::Call,
    Method<&Io::xRead, SQLITE_IOERR_READ>::Call,
    Method<&Io::xWrite, SQLITE_IOERR_WRITE>::Call,
    Method<&Io::xTruncate, SQLITE_IOERR_TRUNCATE>::Call,
    Method<&Io::xSync, SQLITE_IOERR_FSYNC>::Call,
    Method<&Io::xFileSize, SQLITE_IOERR_FSTAT>::Call,
    Method<&Io::xLock, SQLITE_IOERR_LOCK>::Call,
    Unlock,
    Method<&Io::xCheckReservedLock, SQLITE_IOERR_CHECKRESERVEDLOCK>::Call,
    Method<&Io::xFileControl, SQLITE_OK>::Call,
    Method<&Io::xSectorSize, SQLITE_OK>::Call,
    Method<&Io::xDeviceCharacteristics, SQLITE_OK>::Call,
    Method<&Io::xShmMap, SQLITE_IOERR_SHMMAP>::Call,
    ShmLock,
    [](sqlite3_file* file) { Real(file)->pMethods->xShmBarrier(Real(file)); },
    Method<&Io::xShmUnmap, SQLITE_OK>::Call,
    Method<&Io::xFetch, SQLITE_OK>::Call,
    Method<&Io::xUnfetch, SQLITE_OK>::Call,
};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  file->pMethods = nullptr;
  if (const int error = FileError(SQLITE_CANTOPEN)) return error;
  const int result = realVfs->xOpen(realVfs, name, Real(file), flags, outFlags);
  if (Real(file)->pMethods) file->pMethods = &kMethods;
  return result;
}

// ---- All of it, in place before SQLite's first use ----

[[maybe_unused]] const bool installed = [] {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMemory);
  sqlite3_mem_methods memory = realMemory;
  memory.xMalloc = [](int size) { return Fails(FaultPoint::kDatabaseMemory) ? nullptr : realMemory.xMalloc(size); };
  memory.xRealloc = [](void* old, int size) {
    return Fails(FaultPoint::kDatabaseMemory) ? nullptr : realMemory.xRealloc(old, size);
  };
  sqlite3_config(SQLITE_CONFIG_MALLOC, &memory);
  sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);  // every small allocation is one, too

  realVfs = sqlite3_vfs_find(nullptr);
  static sqlite3_vfs vfs = *realVfs;
  vfs.zName = "faults";
  vfs.szOsFile += static_cast<int>(sizeof(sqlite3_file));
  vfs.xOpen = Open;
  vfs.xDelete = Method<&sqlite3_vfs::xDelete, SQLITE_IOERR_DELETE>::Call;
  vfs.xAccess = Method<&sqlite3_vfs::xAccess, SQLITE_IOERR_ACCESS>::Call;
  vfs.xFullPathname = Method<&sqlite3_vfs::xFullPathname, SQLITE_CANTOPEN>::Call;
  return sqlite3_vfs_register(&vfs, 1) == SQLITE_OK;
}();

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Fails(FaultPoint::kMemory) ? nullptr : std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

FaultPoint::FaultPoint(Kind kind, long nth, bool persists) { fault = {true, kind, nth, persists, false}; }

FaultPoint::~FaultPoint() { fault.armed = false; }

bool FaultPoint::Hit() const { return fault.hit; }

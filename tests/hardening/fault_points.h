/// Makes the nth thing that the library asks of its surroundings fail: of the file system (through a SQLite VFS), of
/// SQLite's allocator, or of operator new. Linking fault_points.cpp puts all three in place before main.
///
///   bool hit = false;
///   {
///     const FaultPoint fault(FaultPoint::kMemory, 7, false);
///     DelegationRefresh();
///     hit = fault.Hit();                        // false: there was no seventh allocation
///   }
///
/// One at a time. What is not failed goes on to the real thing.
#pragma once

class FaultPoint {
 public:
  enum Kind {
    kFile,            ///< every operation on a file, with its own I/O error
    kDiskFull,        ///< every write to a file, with SQLITE_FULL
    kBusy,            ///< every lock that is taken, with SQLITE_BUSY
    kDatabaseMemory,  ///< every allocation of SQLite's
    kMemory,          ///< every operator new
  };

  /// From now on the nth (from 1) operation of this kind fails, or all from the nth on.
  FaultPoint(Kind kind, long nth, bool persists);
  /// Ends it.
  ~FaultPoint();
  FaultPoint(const FaultPoint&) = delete;
  FaultPoint& operator=(const FaultPoint&) = delete;

  /// Whether any operation has failed.
  bool Hit() const;
};

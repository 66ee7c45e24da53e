#pragma once

#include <string>

// A VDPOutputDirectoryLock holds an advisory lock on an output directory for its lifetime, so a
// second run into the same directory waits, silently, until the first has written all of its
// results, and the directory always holds one run's complete set. The lock is taken on the
// directory itself (flock on its descriptor), not on a lock file: no file is added to the
// results, none is left behind by a run that is stopped, and the system drops the lock when the
// process ends however it ends. Where the directory cannot be opened or locked (a file system
// without flock), the run goes on unlocked.
class VDPOutputDirectoryLock {
 public:
  explicit VDPOutputDirectoryLock(const std::string& directory);
  ~VDPOutputDirectoryLock();
  VDPOutputDirectoryLock(const VDPOutputDirectoryLock&) = delete;
  VDPOutputDirectoryLock& operator=(const VDPOutputDirectoryLock&) = delete;

 private:
  int _fileDescriptor;
};

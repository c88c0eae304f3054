// Small file operations of the host. Every descriptor opened here is close-on-exec.
#pragma once

#include <list>
#include <string>

// A lock on a file of its own, taken with flock(2) and released by the destructor. The file is created (mode 0600)
// when the lock is taken, not before. One object, one thread; other processes are excluded.
class QmFlock {
 public:
  explicit QmFlock(const std::string& path);
  ~QmFlock();
  QmFlock(const QmFlock&) = delete;
  QmFlock& operator=(const QmFlock&) = delete;

  // Exclusive lock. `timeoutMs` below 0 waits without limit, else at most so long. 0, or -1 (no such directory, no
  // permission, time over).
  int LockEx(int timeoutMs);
  // Releases the lock; harmless without one.
  void UnLock();

 private:
  std::string m_Path;
  int m_Fd = -1;
};

// Removes a file or a whole directory tree without following symbolic links. 0, or -1 (also when there was nothing).
// Files that another process makes meanwhile go too, unless it keeps making them; one that removes the same tree at the
// same time is no failure.
int QmRm(const std::string& path);
// Creates an empty file, or sets an existing one's times to now. 0 or -1.
int QmTouch(const std::string& path);
// Whether `path` is a directory.
bool IsExistDir(const std::string& path);
// Whether `path` is a regular file; with `notEmpty`, one that holds at least one byte.
bool IsFileExist(const std::string& path, bool notEmpty);
// Creates a directory (mode 0700) with its parents and, when `owner` is not empty, gives it to that user; `recursive`
// extends the ownership to created parents. 0 also when it exists already; -1 on failure.
int CreateDirP(const std::string& path, const std::string& owner, bool recursive);
// Appends the names of the regular files in `dir` (no order). 0, or -1 when it cannot be read.
int GetFilesInDir(const std::string& dir, std::list<std::string>& names);
// `text` with every occurrence of `symbol` replaced; an empty symbol changes nothing.
std::string StringReplaceSymbol(const std::string& text, const std::string& symbol, const std::string& replacement);
// Copies at most `size` - 1 characters and always terminates (`size` at least 1).
void Strncpy(char* target, const std::string& source, unsigned size);
// The value of `key` in a file of `key=value` lines (blank and "#" lines skipped, spaces around "=" ignored, value
// optionally in double quotes, the first match counts). `caseless` ignores the key's case. Returns the number of
// matches taken (1), 0 when the key is absent, -1 when the file cannot be read; `value` is set only on 1.
int QmFileGetVal(const std::string& path, const std::string& key, std::string& value, bool caseless);

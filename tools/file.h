// Files, checked: whatever fails is thrown with the file's name and the reason. What has to wait ends at a signal
// that asks to stop (stop.h).
#ifndef ZORSTAT_FILE_H_
#define ZORSTAT_FILE_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zorstat {

// These throw Error. A pipe is open at once; reading waits for the one who writes.
int OpenForReading(const std::string &path);
size_t ReadSome(int fd, const std::string &name, char *buffer, size_t size);  // 0 at the end
// Files of more than `limit` bytes are refused.
void ReadFile(const std::string &path, size_t limit, std::string *text);

// Whether the path is that of the open regular file.
bool IsSameFile(const std::string &path, int fd);

// A place in a regular file: behind so many of its bytes.
struct FileMark {
  std::uint64_t device;
  std::uint64_t inode;
  std::uint64_t size;
};
// Whether an output of this name is a file, or will be: neither standard output nor a pipe or device.
bool IsFileOutput(const std::string &path);

// A file of whole lines, or standard output. A file is written beside the one that may have its name and takes its
// place when published, with its owner and mode as far as this process may give them; until then the old one stays,
// nobody else can read the new one, and that goes when it is not published. It is locked while it is written, so
// that the next run can tell what a killed one has left, and remove it. A link leads to the file, which is
// replaced; pipes and devices are written directly. All but the destructor throw OutputError.
//
// One that is appended to is written in place, by one run at a time. It is to have the header as its first line,
// and a last line without an end, as a killed run leaves it, is cut off, with a note.
class Output {
 public:
  // "-" is standard output. The header, a line or nothing, stands before the first lines of an empty file. To
  // append to what is no file, or has another header, throws Error.
  explicit Output(const std::string &path, std::string header = {}, bool append = false);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  // Writes the lines, all or, as far as the file allows to take them back, none.
  void Write(std::string_view lines);
  void Publish();
  // The end of what is written, which is there even if the machine stops now. Nothing where it is no file of ours.
  std::optional<FileMark> Mark() const;
  // Cuts what is behind the mark, if it is one of this file; returns how many bytes that was.
  std::uint64_t CutBack(const FileMark &mark) const;
  const std::string &name() const { return name_; }

  // Opens the path again and appends to it from now on, whoever may have renamed, removed or emptied the file. One
  // that is not published stays as it is, and so does the old one when this throws.
  void Reopen();
  // Of the file that is appended to; empty if it has none.
  std::string LastLine() const;
  // Whether the next lines are the first ones.
  bool IsEmpty() const;
  // Publishes, and sees the errors that show only now. Nothing can be written afterwards.
  void Close();

 private:
  Output() = default;
  [[noreturn]] void Fail(const char *action) const;
  void Sync() const;
  void OpenAnew();
  void OpenDirectly();
  void OpenToAppend();
  void CreateBeside();
  void CheckLines();
  off_t LineStart(off_t end) const;
  std::string Text(off_t start, off_t end) const;
  void Put(std::string_view lines);
  void TakeRights() const;
  void TakeBack(size_t bytes) const;

  std::string name_;
  std::string path_;
  std::string header_;
  std::string target_;  // the path, or where its link leads
  std::string beside_;  // the file's name until it is published
  int fd_ = -1;
  size_t piece_ = 0;  // bytes that are written at once
  bool is_file_ = false;
  bool is_begun_ = false;
};

}  // namespace zorstat

#endif  // ZORSTAT_FILE_H_

// Files, checked: whatever fails is thrown with the file's name and the reason.
#ifndef ZORSTAT_FILE_H_
#define ZORSTAT_FILE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace zorstat {

// These throw Error.
int OpenForReading(const std::string &path);
size_t ReadSome(int fd, const std::string &name, char *buffer, size_t size);  // 0 at the end
void ReadFile(const std::string &path, std::string *text);

// Whether the path is that of the open regular file.
bool IsSameFile(const std::string &path, int fd);

// Lines on their way to a file or to standard output. All but the destructor throw OutputError.
class Output {
 public:
  // "-" is standard output; a file is emptied.
  explicit Output(const std::string &path);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  // Takes whole lines; they are written at the latest by Flush().
  void Write(std::string_view lines);
  void Flush();
  // Flushes, and sees the errors that show only now. Nothing can be written afterwards.
  void Close();

 private:
  [[noreturn]] void Fail(const char *action) const;

  std::string name_;
  int fd_;
  std::string buffer_;
};

}  // namespace zorstat

#endif  // ZORSTAT_FILE_H_

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

// A file of whole lines, or standard output. A file is written beside the one that may have its name and takes its
// place when published; until then the old one stays, and the new one goes when it is not. All but the destructor
// throw OutputError.
class Output {
 public:
  // "-" is standard output.
  explicit Output(const std::string &path);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  // Writes the lines, all or, as far as the file allows to take them back, none.
  void Write(std::string_view lines);
  void Publish();
  // Publishes, and sees the errors that show only now. Nothing can be written afterwards.
  void Close();

 private:
  [[noreturn]] void Fail(const char *action) const;
  void TakeBack(size_t bytes) const;

  std::string name_;
  std::string target_;
  std::string beside_;  // the file's name until it is published
  int fd_ = -1;
};

}  // namespace zorstat

#endif  // ZORSTAT_FILE_H_

// Lines of a file or of standard input.
#ifndef ZORSTAT_LINE_READER_H_
#define ZORSTAT_LINE_READER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zorstat {

// Reads a file line by line in large pieces.
class LineReader {
 public:
  // "-" is standard input.
  explicit LineReader(const std::string &path);
  // Lines of a text.
  LineReader(std::string name, std::string_view text);
  ~LineReader();
  LineReader(const LineReader &) = delete;
  LineReader &operator=(const LineReader &) = delete;

  // The first bytes, which are read again as lines; fewer if there are no more. Before the first line.
  std::string_view Head(size_t size);

  // The next line without its end, valid until the next call; false at the end.
  bool Next(std::string_view *line);

  int fd() const { return fd_; }
  const std::string &name() const { return name_; }
  uint64_t line_number() const { return line_number_; }
  uint64_t bytes_read() const { return bytes_read_; }
  bool last_line_is_open() const { return last_line_is_open_; }  // nothing ends it

 private:
  bool Fill();

  std::string name_;
  int fd_;
  std::vector<char> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  uint64_t line_number_ = 0;
  uint64_t bytes_read_ = 0;
  bool at_end_ = false;
  bool last_line_is_open_ = false;
};

}  // namespace zorstat

#endif  // ZORSTAT_LINE_READER_H_

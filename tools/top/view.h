// What `zorstat top` shows, as lines of text: a pure function, which needs no terminal but its size.
#ifndef ZORSTAT_TOP_VIEW_H_
#define ZORSTAT_TOP_VIEW_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zorstat::top {

enum Field : std::size_t { kLast, kMin, kMedian, kHigh, kMax, kBeyond, kDeparture, kFields };

struct Figure {
  std::optional<double> number;  // to sort by
  std::string text = "-";        // ASCII
};

struct Row {
  std::string name;
  std::array<Figure, kFields> figures;
  int departed = 0;             // -1, 1: the median lies far below, above where it used to
  std::vector<double> samples;  // of the last polls, the newest last; NaN: none
};

struct Object {
  std::string name;
  std::vector<Row> rows;  // as the source lists them
};

struct Model {
  std::string source;
  std::vector<Object> objects;
  std::uint32_t polls = 0, interval_polls = 0;  // of the interval: so far, and in all
  std::uint32_t poll_interval = 0;              // seconds
  std::string time;                             // of the last poll
};

enum class Key {
  kNone,
  kQuit,
  kHelp,
  kNextObject,
  kLastObject,
  kNextSort,
  kLastSort,
  kReverse,  //
  kUp,
  kDown,
  kPageUp,
  kPageDown,
  kHome,
  kEnd
};

// What the keys have chosen.
struct State {
  std::size_t object = 0;
  std::size_t sort = 0;  // as listed, by name, and then by the fields
  bool reverse = false;
  std::size_t first = 0;  // row that is shown
  bool help = false;
};

struct Size {
  std::size_t columns, lines;
};

// False if the key ends the view.
bool Press(Key key, const Model &model, const Size &size, State *state);

enum class Style { kPlain, kHeading, kTitle, kDeparted, kBeyond, kKey };
struct Piece {
  std::string text;
  Style style;
};
using Line = std::vector<Piece>;  // that take no more than the columns

// Widths are those of the locale; outside UTF-8 all is ASCII.
std::vector<Line> Draw(const Model &model, const State &state, int seconds_left, const Size &size, bool utf8);

}  // namespace zorstat::top

#endif  // ZORSTAT_TOP_VIEW_H_

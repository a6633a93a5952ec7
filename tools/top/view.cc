#include "top/view.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <initializer_list>
#include <numeric>
#include <string_view>

namespace zorstat::top {
namespace {

struct Glyphs {
  std::string_view levels[8];  // of a sparkline; the lowest is 0
  std::string_view up, down, cut;
};
constexpr Glyphs kUnicode = {{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"}, "▲", "▼", "…"};
constexpr Glyphs kAscii = {{" ", ".", ":", "-", "=", "+", "*", "#"}, "^", "v", "~"};

struct FieldInfo {
  std::string_view title;
  std::string_view name;  // of the order
  std::size_t width;      // with a space before
};
constexpr FieldInfo kInfos[kFields] = {
    {"LAST", "last", 9},   {"MIN", "min", 9},       {"MEDIAN", "median", 9},    {"97.72%", "97.72 %", 9},
    {"MAX", "maximum", 9}, {"BEYOND", "beyond", 8}, {"DEPART", "departure", 8},
};
// Where there is no room for all, those at the end are left out.
constexpr Field kByImportance[kFields] = {kMedian, kLast, kHigh, kMax, kBeyond, kMin, kDeparture};

// As listed, by name, by field.
constexpr std::size_t kAsListed = 0, kByName = 1, kFirstField = 2, kSorts = kFirstField + kFields;
constexpr std::string_view SortName(std::size_t sort) {
  return sort == kAsListed ? "listed" : sort == kByName ? "name" : kInfos[sort - kFirstField].name;
}

constexpr std::size_t kMark = 2;    // columns before a name
constexpr std::size_t kNames = 10;  // column of names, at least
constexpr std::size_t kPolls = 9;   // sparkline that other figures give way to
constexpr std::size_t kOtherLines = 3;

struct HelpLine {
  std::string_view key, text;
};
constexpr HelpLine kHelp[] = {
    {"q", "quit"},
    {"? h", "this help, and back"},
    {"Tab, right", "next object, which is a column of the source"},
    {"left", "the one before; also Shift-Tab"},
    {"s S", "sort by the next figure, by the one before"},
    {"r", "reverse the order"},
    {"up, down", "scroll; also Page Up, Page Down, Home and End"},
    {"", ""},
    {"LAST", "sample of the last poll: of a counter, by how much it grew"},
    {"MIN, MAX", "smallest and largest sample of the interval"},
    {"MEDIAN", "half of its samples are below; 97.72%: all but 2.28 % are"},
    {"BEYOND", "share of its samples outside --range or the learnt range"},
    {"DEPART", "how far the median is from those of up to six intervals"},
    {"", "before, in widths of the band of their middle 68.26 %:"},
    {"", "from 1 on, or outside the learnt range, a row is marked"},
    {"POLLS", "samples of the last polls, from 0 to the largest of them"},
};

// The characters of a text with their widths; what has none of its own, or would move others, is a question mark.
class Characters {
 public:
  explicit Characters(std::string_view text) : rest_(text) {}

  bool Next(std::string_view *character, std::size_t *width) {
    if (rest_.empty()) return false;
    wchar_t wide = 0;
    std::mbstate_t state{};
    std::size_t length = std::mbrtowc(&wide, rest_.data(), rest_.size(), &state);
    const int columns = length == 0 || length > rest_.size() ? 0 : wcwidth(wide);
    if (length == 0 || length > rest_.size()) {  // all bytes of UTF-8
      length = 1;
      while (length < rest_.size() && (static_cast<unsigned char>(rest_[length]) & 0xc0) == 0x80) ++length;
    }
    *character = columns > 0 ? rest_.substr(0, length) : "?";
    *width = columns > 0 ? static_cast<std::size_t>(columns) : 1;
    rest_.remove_prefix(length);
    return true;
  }

 private:
  std::string_view rest_;
};

std::size_t WidthOf(std::string_view text) {
  Characters characters(text);
  std::string_view character;
  std::size_t sum = 0;
  for (std::size_t width; characters.Next(&character, &width);) sum += width;
  return sum;
}

// The text in so many columns, filled up or cut.
std::string Fit(std::string_view text, std::size_t columns, const Glyphs &glyphs) {
  const bool is_cut = WidthOf(text) > columns && columns != 0;
  const std::size_t room = is_cut ? columns - 1 : columns;
  Characters characters(text);
  std::string fitted;
  std::string_view character;
  std::size_t sum = 0;
  for (std::size_t width; characters.Next(&character, &width) && sum + width <= room; sum += width) {
    fitted += character;
  }
  if (is_cut) fitted += glyphs.cut;
  return fitted.append(room - sum, ' ');
}

std::string Right(std::string_view text, std::size_t columns) { return fmt::format("{:>{}}", text, columns); }

// Where the columns of an object begin and end.
struct Layout {
  std::size_t name = 0;  // columns, its mark before it not counted
  std::array<bool, kFields> has = {};
  std::size_t polls = 0;  // columns of the sparkline
};

Layout LayOut(const Object &object, std::size_t columns) {
  Layout layout;
  std::size_t longest = 0;
  for (const Row &row : object.rows) longest = std::max(longest, WidthOf(row.name));
  layout.name = std::clamp(longest, kNames, std::max(kNames, columns / 4));
  layout.name = std::min(layout.name, columns - std::min(columns, kMark));
  std::size_t used = kMark + layout.name;
  for (const Field field : kByImportance) {
    const bool is_empty = std::none_of(object.rows.begin(), object.rows.end(),
                                       [&](const Row &row) { return row.figures[field].number.has_value(); });
    if (is_empty && (field == kBeyond || field == kDeparture)) continue;
    if (used + kInfos[field].width + 1 + kPolls > columns) break;
    used += kInfos[field].width;
    layout.has[field] = true;
  }
  if (columns > used + 1) layout.polls = columns - used - 1;
  return layout;
}

std::vector<std::size_t> Order(const std::vector<Row> &rows, const State &state) {
  std::vector<std::size_t> order(rows.size());
  std::iota(order.begin(), order.end(), 0);
  if (state.sort == kByName) {
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return rows[a].name < rows[b].name; });
  }
  if (state.sort < kFirstField) {
    if (state.reverse) std::reverse(order.begin(), order.end());
    return order;
  }
  const std::size_t field = state.sort - kFirstField;
  std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) {
    const auto &left = rows[a].figures[field].number;
    const auto &right = rows[b].figures[field].number;
    if (!left || !right) return left.has_value();
    const auto size = [&](double number) { return field == kDeparture ? std::abs(number) : number; };
    return state.reverse ? size(*left) < size(*right) : size(*left) > size(*right);
  });
  return order;
}

std::string Sparkline(const std::vector<double> &samples, std::size_t columns, const Glyphs &glyphs) {
  const std::size_t shown = std::min(columns, samples.size());
  double largest = 0;
  for (std::size_t i = samples.size() - shown; i < samples.size(); ++i) {
    if (samples[i] > largest) largest = samples[i];
  }
  std::string line(columns - shown, ' ');
  for (std::size_t i = samples.size() - shown; i < samples.size(); ++i) {
    const double share = samples[i] > 0 ? samples[i] / largest : 0;
    line += std::isnan(samples[i]) ? " " : glyphs.levels[static_cast<std::size_t>(std::ceil(share * 7))];
  }
  return line;
}

Line Heading(const Model &model, const State &state, int seconds_left, std::size_t columns, const Glyphs &glyphs) {
  const std::string object = model.objects[state.object].name;
  const std::string left =
      fmt::format("{} {} ({} of {})", model.source, object, state.object + 1, model.objects.size());
  const std::string polls = fmt::format("poll {} of {}", model.polls, model.interval_polls);
  const std::string next = fmt::format("next in {:>2} s", seconds_left);
  for (const std::string &right :
       {fmt::format("{}, every {} s, {}  {}", polls, model.poll_interval, next, model.time),
        fmt::format("{}, {}", polls, next), polls, fmt::format("{}/{}", model.polls, model.interval_polls)}) {
    const std::size_t width = WidthOf(left);
    if (width + 2 + right.size() > columns) continue;
    return {{left, Style::kHeading}, {Right(right, columns - width), Style::kPlain}};
  }
  return {{Fit(left, columns, glyphs), Style::kHeading}};
}

Line Titles(const Layout &layout, const State &state, std::size_t columns, const Glyphs &glyphs) {
  const std::string_view arrow = (state.sort == kByName) == state.reverse ? glyphs.down : glyphs.up;
  const auto marked = [&](std::string_view title, std::size_t sort) {
    return state.sort == sort ? fmt::format("{}{}", arrow, title) : std::string(title);
  };
  std::string text(kMark - (state.sort == kByName ? 1 : 0), ' ');
  text += Fit(marked("INSTANCE", kByName), layout.name + (state.sort == kByName ? 1 : 0), glyphs);
  for (std::size_t field = 0; field < kFields; ++field) {
    if (!layout.has[field]) continue;
    const std::string title = marked(kInfos[field].title, kFirstField + field);
    text.append(kInfos[field].width - WidthOf(title), ' ').append(title);
  }
  return {{Fit(text + " POLLS", columns, glyphs), Style::kTitle}};
}

Line RowLine(const Row &row, const Layout &layout, const Glyphs &glyphs) {
  const Style style = row.departed == 0 ? Style::kPlain : Style::kDeparted;
  const std::string_view mark = row.departed == 0 ? " " : row.departed > 0 ? glyphs.up : glyphs.down;
  Line line = {{fmt::format("{} {}", mark, Fit(row.name, layout.name, glyphs)), style}};
  for (std::size_t field = 0; field < kFields; ++field) {
    if (!layout.has[field]) continue;
    const auto &[number, text] = row.figures[field];
    const std::size_t width = kInfos[field].width;
    const bool is_beyond = field == kBeyond && number && *number > 0;
    line.push_back({Right(text.size() < width ? text : fmt::format("{:.1e}", *number), width),
                    is_beyond             ? Style::kBeyond
                    : field == kDeparture ? style
                                          : Style::kPlain});
  }
  if (layout.polls != 0) line.push_back({' ' + Sparkline(row.samples, layout.polls, glyphs), Style::kPlain});
  return line;
}

std::size_t PageOf(const Size &size) { return size.lines > kOtherLines ? size.lines - kOtherLines : 0; }

std::size_t LastFirst(const Object &object, const Size &size) {
  return object.rows.size() - std::min(object.rows.size(), PageOf(size));
}

// Those that have room.
Line Keys(const Model &model, const State &state, const Size &size) {
  struct Hint {
    std::string_view key;
    std::string text;
  };
  std::vector<Hint> hints = {{"q", "quit"}};
  hints.push_back({"?", state.help ? "back" : "help"});
  const Object &object = model.objects[state.object];
  if (!state.help) {
    hints.push_back({"Tab", "object"});
    hints.push_back({"s", fmt::format("sort: {}", SortName(state.sort))});
    hints.push_back({"r", "reverse"});
    if (const std::size_t last = LastFirst(object, size); last != 0) {
      const std::size_t first = std::min(state.first, last);
      hints.push_back({"PgDn", fmt::format("{}-{} of {}", first + 1, first + PageOf(size), object.rows.size())});
    }
  }
  Line line;
  std::size_t used = 0;
  for (const Hint &hint : hints) {
    used += hint.key.size() + hint.text.size() + 3;
    if (used > size.columns) break;
    line.push_back({fmt::format(" {} ", hint.key), Style::kKey});
    line.push_back({hint.text + ' ', Style::kPlain});
  }
  return line;
}

}  // namespace

bool Press(Key key, const Model &model, const Size &size, State *state) {
  if (key == Key::kQuit) return false;
  if (key == Key::kNone) return true;
  if (key == Key::kHelp || state->help) {
    state->help = !state->help;
    return true;
  }
  const std::size_t page = std::max<std::size_t>(PageOf(size), 1);
  const std::size_t last = LastFirst(model.objects[state->object], size);
  std::size_t &first = state->first = std::min(state->first, last);
  const std::size_t objects = model.objects.size();
  switch (key) {
    case Key::kNextObject:
      state->object = (state->object + 1) % objects;
      break;
    case Key::kLastObject:
      state->object = (state->object + objects - 1) % objects;
      break;
    case Key::kNextSort:
      state->sort = (state->sort + 1) % kSorts;
      break;
    case Key::kLastSort:
      state->sort = (state->sort + kSorts - 1) % kSorts;
      break;
    case Key::kReverse:
      state->reverse = !state->reverse;
      break;
    case Key::kUp:
      first -= std::min<std::size_t>(first, 1);
      break;
    case Key::kDown:
      first = std::min(first + 1, last);
      break;
    case Key::kPageUp:
      first -= std::min(first, page);
      break;
    case Key::kPageDown:
      first = std::min(first + page, last);
      break;
    case Key::kHome:
      first = 0;
      break;
    case Key::kEnd:
      first = last;
      break;
    default:
      break;
  }
  return true;
}

std::vector<Line> Draw(const Model &model, const State &state, int seconds_left, const Size &size, bool utf8) {
  const Glyphs &glyphs = utf8 ? kUnicode : kAscii;
  const Object &object = model.objects[state.object];
  std::vector<Line> lines = {Heading(model, state, seconds_left, size.columns, glyphs)};
  if (state.help) {
    lines.emplace_back();
    for (const HelpLine &help : kHelp) {
      const std::string text = fmt::format("  {:<12}{}", help.key, help.text);
      lines.push_back({{Fit(text, size.columns, glyphs), Style::kPlain}});
    }
  } else {
    const Layout layout = LayOut(object, size.columns);
    lines.push_back(Titles(layout, state, size.columns, glyphs));
    const std::vector<std::size_t> order = Order(object.rows, state);
    const std::size_t first = std::min(state.first, LastFirst(object, size));
    for (std::size_t i = first; i < std::min(order.size(), first + PageOf(size)); ++i) {
      lines.push_back(RowLine(object.rows[order[i]], layout, glyphs));
    }
    if (order.empty()) lines.push_back({{Fit("  no instances", size.columns, glyphs), Style::kPlain}});
  }
  lines.resize(std::max<std::size_t>(size.lines, 1) - 1);
  lines.push_back(Keys(model, state, size));
  return lines;
}

}  // namespace zorstat::top

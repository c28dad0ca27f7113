#include "RecordOptions.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace cli {

namespace {

struct CodecEntry {
  const char* name;
  const char* title;
  int32_t type;
};

constexpr CodecEntry kCodecs[] = {
    {"wmv", "WMV", 0},    {"h264", "H.264", 1},   {"h265", "H.265", 2},
    {"hevc", "H.265", 2}, {"mpeg2", "MPEG-2", 3}, {"gif", "GIF", 4},
};

bool ParseInt(const std::string& text, int64_t* value) {
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, *value);
  return ec == std::errc() && ptr == end && !text.empty();
}

bool ParseSeconds(const std::string& text, double* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  *value = std::strtod(text.c_str(), &end);
  return end == text.c_str() + text.size() && std::isfinite(*value) && *value >= 0;
}

std::vector<std::string> SplitCommas(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t comma = text.find(',', start);
    parts.push_back(text.substr(start, comma - start));
    if (comma == std::string::npos) return parts;
    start = comma + 1;
  }
}

// Reads the options one by one; each Take* method reports its own error.
class Parser {
 public:
  Parser(const std::vector<std::string>& args, RecordOptions* o, std::string* error)
      : m_args(args), m_o(o), m_error(error) {}

  bool Run();

 private:
  bool Fail(std::string message) {
    *m_error = std::move(message);
    return false;
  }
  bool Value(const std::string& option, std::string* value);
  bool Number(const std::string& option, const std::string& text, int64_t low, int64_t high,
              int64_t* value);
  bool Option(const std::string& option);
  bool TakeRegion(const std::string& text);
  bool TakeWindow(const std::string& text);
  bool TakeCodec(const std::string& text);
  bool TakeTrim(const std::string& text);
  bool Check();

  const std::vector<std::string>& m_args;
  RecordOptions* m_o;
  std::string* m_error;
  size_t m_next = 0;
  std::string m_inline;  // the value after '=' in --option=value
  bool m_hasInline = false;
  bool m_displayGiven = false;
  std::string m_videoOption;  // the first option that only a video recording takes
};

// What a recording of sound alone has no use for.
bool VideoOnly(const std::string& option) {
  for (const char* o :
       {"--display", "--region", "--window", "--select", "--pick-window", "--follow", "--center",
        "--codec", "--fps", "--quality", "--cursor", "--clicks", "--box"})
    if (option == o) return true;
  return false;
}

bool Parser::Run() {
  std::vector<std::string> positional;
  bool optionsEnded = false;
  while (m_next < m_args.size()) {
    std::string arg = m_args[m_next++];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    m_hasInline = false;
    if (size_t eq = arg.find('='); arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      m_inline = arg.substr(eq + 1);
      m_hasInline = true;
      arg.resize(eq);
    }
    if (m_videoOption.empty() && VideoOnly(arg)) m_videoOption = arg;
    if (!Option(arg)) return false;
  }
  if (positional.empty()) return Fail("record needs an output file, e.g. 'orvanta record out.mp4'");
  if (positional.size() > 1) return Fail("unexpected argument '" + positional[1] + "'");
  m_o->out = positional[0];
  return Check();
}

bool Parser::Value(const std::string& option, std::string* value) {
  if (m_hasInline) {
    *value = m_inline;
    return true;
  }
  if (m_next >= m_args.size()) return Fail(option + " needs a value");
  *value = m_args[m_next++];
  return true;
}

bool Parser::Number(const std::string& option, const std::string& text, int64_t low, int64_t high,
                    int64_t* value) {
  if (!ParseInt(text, value) || *value < low || *value > high)
    return Fail(option + " takes a whole number from " + std::to_string(low) + " to " +
                std::to_string(high) + ", not '" + text + "'");
  return true;
}

bool Parser::Option(const std::string& option) {
  auto flag = [&](bool* field) {
    if (m_hasInline) return Fail(option + " takes no value");
    *field = true;
    return true;
  };
  std::string value;
  int64_t number = 0;
  if (option == "--system-audio") return flag(&m_o->systemAudio);
  if (option == "--mic") return flag(&m_o->mic);
  if (option == "--cursor") return flag(&m_o->cursor);
  if (option == "--clicks") return flag(&m_o->clicks);
  if (option == "--box") return flag(&m_o->box);
  if (option == "--countdown") return flag(&m_o->countdown);
  if (option == "--audio-only") return flag(&m_o->audioOnly);
  if (option == "--select") return flag(&m_o->select);
  if (option == "--pick-window") return flag(&m_o->pickWindow);
  if (option == "--follow" || option == "--center") {
    if (m_hasInline) return Fail(option + " takes no value");
    Follow wanted = option == "--follow" ? Follow::Follow : Follow::Center;
    if (m_o->follow != Follow::None && m_o->follow != wanted)
      return Fail("use either --follow or --center, not both");
    m_o->follow = wanted;
    return true;
  }
  if (option == "--display") {
    if (!Value(option, &value) || !Number(option, value, 0, 15, &number)) return false;
    m_o->display = static_cast<int>(number);
    m_displayGiven = true;
    return true;
  }
  if (option == "--region") return Value(option, &value) && TakeRegion(value);
  if (option == "--window") return Value(option, &value) && TakeWindow(value);
  if (option == "--codec") return Value(option, &value) && TakeCodec(value);
  if (option == "--fps") {
    if (!Value(option, &value) || !Number(option, value, 1, 120, &number)) return false;
    m_o->fps = static_cast<int32_t>(number);
    return true;
  }
  if (option == "--quality") {
    if (!Value(option, &value) || !Number(option, value, 1, 6, &number)) return false;
    m_o->quality = static_cast<int32_t>(number);
    return true;
  }
  if (option == "--seconds") {
    if (!Value(option, &value)) return false;
    if (!ParseSeconds(value, &m_o->seconds) || m_o->seconds <= 0)
      return Fail("--seconds takes a time in seconds above 0, not '" + value + "'");
    return true;
  }
  if (option == "--trim") return Value(option, &value) && TakeTrim(value);
  if (option == "--temp") {
    if (!Value(option, &value)) return false;
    if (value.empty()) return Fail("--temp needs a folder");
    m_o->tempFolder = value;
    return true;
  }
  return Fail("unknown option '" + option + "' (see 'orvanta help record')");
}

bool Parser::TakeRegion(const std::string& text) {
  std::vector<std::string> parts = SplitCommas(text);
  int64_t v[4];
  bool ok = parts.size() == 4;
  for (size_t i = 0; ok && i < 4; ++i) ok = ParseInt(parts[i], &v[i]);
  if (!ok || v[2] < 1 || v[3] < 1 || v[0] < -32768 || v[1] < -32768 || v[0] > 32767 ||
      v[1] > 32767 || v[2] > 32767 || v[3] > 32767)
    return Fail("--region takes X,Y,WIDTH,HEIGHT in pixels, e.g. 0,0,1280,720, not '" + text + "'");
  m_o->hasRegion = true;
  m_o->region = {static_cast<int32_t>(v[0]), static_cast<int32_t>(v[1]), static_cast<int32_t>(v[2]),
                 static_cast<int32_t>(v[3])};
  return true;
}

bool Parser::TakeWindow(const std::string& text) {
  char* end = nullptr;
  unsigned long long id = std::strtoull(text.c_str(), &end, 0);
  if (text.empty() || text[0] == '-' || end != text.c_str() + text.size() || id == 0)
    return Fail("--window takes an X window id such as 0x3a00007, not '" + text + "'");
  m_o->window = id;
  return true;
}

bool Parser::TakeCodec(const std::string& text) {
  for (const CodecEntry& c : kCodecs) {
    if (text == c.name) {
      m_o->codec = c.type;
      return true;
    }
  }
  return Fail("unknown codec '" + text + "': choose h264, h265, mpeg2, wmv or gif");
}

bool Parser::TakeTrim(const std::string& text) {
  std::vector<std::string> parts = SplitCommas(text);
  double start = 0, end = 0;
  if (parts.size() != 2 || !ParseSeconds(parts[0], &start) ||
      (!parts[1].empty() && !ParseSeconds(parts[1], &end)))
    return Fail("--trim takes START,END in seconds (END 0 or empty keeps to the end), not '" +
                text + "'");
  if (end != 0 && end <= start) return Fail("--trim: END must come after START in '" + text + "'");
  m_o->hasTrim = true;
  m_o->trimStart = start;
  m_o->trimEnd = end;
  return true;
}

// Rules between options, checked once all are read.
bool Parser::Check() {
  if (m_o->audioOnly) {
    if (!m_videoOption.empty())
      return Fail(m_videoOption + " is for video; --audio-only records sound alone");
    if (!m_o->systemAudio && !m_o->mic) m_o->mic = true;
    m_o->codec = kAudioOnly;
  }
  if ((m_o->select || m_o->pickWindow) &&
      (m_o->window || m_o->hasRegion || m_displayGiven || m_o->follow != Follow::None ||
       (m_o->select && m_o->pickWindow)))
    return Fail("--select and --pick-window choose on the screen; they go with no other choice");
  if (m_o->window && (m_o->hasRegion || m_displayGiven))
    return Fail("use either --window or --display/--region, not both");
  if (m_o->window && m_o->follow != Follow::None)
    return Fail("--follow and --center move a region; they do not go with --window");
  if (m_o->follow != Follow::None && !m_o->hasRegion)
    return Fail(std::string(m_o->follow == Follow::Follow ? "--follow" : "--center") +
                " needs --region for the size of the moving region");
  if (m_o->hasTrim && m_o->seconds > 0 && m_o->trimStart >= m_o->seconds)
    return Fail("--trim starts after the end of a recording of --seconds " +
                std::to_string(static_cast<int>(m_o->seconds)));
  if (m_o->codec == 4 && (m_o->systemAudio || m_o->mic))
    return Fail("a GIF has no sound: drop --system-audio and --mic, or choose another codec");
  return true;
}

}  // namespace

bool ParseRecordOptions(const std::vector<std::string>& args, RecordOptions* options,
                        std::string* error) {
  *options = RecordOptions{};
  return Parser(args, options, error).Run();
}

const char* CodecName(int32_t codec) {
  for (const CodecEntry& c : kCodecs)
    if (c.type == codec) return c.name;
  return "unknown";
}

const char* CodecTitle(int32_t codec) {
  for (const CodecEntry& c : kCodecs)
    if (c.type == codec) return c.title;
  return "unknown";
}

const char kRecordUsage[] =
    "usage: orvanta record [options] OUT\n"
    "\n"
    "What to record (default: the whole first display):\n"
    "  --display N           the display N of 'orvanta displays'\n"
    "  --region X,Y,W,H      a region, in pixels of the whole screen\n"
    "  --window ID           one window, by its X id (see xwininfo)\n"
    "  --select              drag a region or click a window on the screen first\n"
    "  --pick-window         click the window to record first\n"
    "  --follow | --center   the region moves with the pointer (needs --region)\n"
    "How:\n"
    "  --codec NAME          h264 (default), h265, mpeg2, wmv, gif\n"
    "  --fps N               frames a second, 1 to 120 (default 30)\n"
    "  --quality N           1 smallest file to 6 best picture (default 3)\n"
    "  --system-audio        the sound the computer plays\n"
    "  --mic                 the default microphone\n"
    "  --cursor              draw the pointer; --clicks shows the clicks\n"
    "  --box                 show a frame round what is recorded; from a terminal, keys\n"
    "                        draw on the screen: 1 rectangle, 2 ellipse, 3 arrow, 4 brush,\n"
    "                        5 line, 6 airbrush, 7 badge, 8 text, 9 eraser, 0 stop\n"
    "                        drawing, u undo, r redo, c clear\n"
    "  --countdown           show 3, 2, 1 on the screen before the recording starts\n"
    "  --audio-only          record sound alone (the microphone unless --system-audio\n"
    "                        is given) into OUT.m4a or OUT.mp3\n"
    "  --seconds N           stop after N seconds (default: at Ctrl-C)\n"
    "  --trim START,END      keep only this part, in seconds (END empty: to the end)\n"
    "  --temp DIR            folder for the temp files (default: a new one in $TMPDIR)\n"
    "\n"
    "OUT ends in .mp4 (h264, h265, mpeg2), .wmv (wmv), .gif (gif), or .m4a or .mp3 (sound\n"
    "alone).\n"
    "Exit status: 0 saved, 1 failed, 2 wrong command line, 3 recorded but not assembled.\n";

}  // namespace cli

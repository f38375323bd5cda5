#include "hosts/cli/output.h"

#include <cstdio>

#include <boost/json.hpp>
#include <boost/locale/utf.hpp>

namespace cli {
namespace {

// Paths are bytes; JSON wants UTF-8.
std::string valid_utf8(std::string const& bytes) {
  using traits = boost::locale::utf::utf_traits<char>;
  std::string out;
  char const* p = bytes.data();
  char const* const end = p + bytes.size();
  while (p != end) {
    char const* start = p;
    auto const code_point = traits::decode(p, end);
    if (code_point == boost::locale::utf::illegal || code_point == boost::locale::utf::incomplete) {
      out += "\xEF\xBF\xBD";
      p = start + 1;
    } else {
      out.append(start, p);
    }
  }
  return out;
}

struct date_parts_t {
  int year;
  unsigned month, day;
  long hours, minutes, seconds;
};

date_parts_t split(importer::instant_t instant) {
  auto const days = std::chrono::floor<std::chrono::days>(instant);
  std::chrono::year_month_day const ymd{days};
  std::chrono::hh_mm_ss const time{instant - days};
  return {int(ymd.year()),
          unsigned(ymd.month()),
          unsigned(ymd.day()),
          long(time.hours().count()),
          long(time.minutes().count()),
          long(time.seconds().count())};
}

std::string quoted(std::string const& text) {
  return boost::json::serialize(boost::json::string(text));
}

} // namespace

std::string iso8601(importer::instant_t instant) {
  auto const d = split(instant);
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02ld:%02ld:%02ldZ", d.year, d.month, d.day, d.hours, d.minutes,
                d.seconds);
  return buffer;
}

std::string to_json_line(record_t const& record) {
  boost::json::object attributes;
  for (auto const& [name, value] : record.attributes) {
    if (auto const* text = std::get_if<std::string>(&value)) {
      attributes[name] = *text;
    } else if (auto const* instant = std::get_if<importer::instant_t>(&value)) {
      attributes[name] = iso8601(*instant);
    } else {
      boost::json::array list;
      for (std::string const& element : std::get<std::vector<std::string>>(value))
        list.emplace_back(element);
      attributes[name] = std::move(list);
    }
  }
  boost::json::object line;
  line["path"] = valid_utf8(record.path);
  if (record.message != 0)
    line["message"] = record.message;
  line["imported"] = record.imported;
  if (!record.error.empty())
    line["error"] = valid_utf8(record.error);
  line["attributes"] = std::move(attributes);
  if (record.problems) {
    boost::json::array problems;
    for (quern::error::record_t const& problem : *record.problems) {
      boost::json::object object;
      for (auto const& [key, value] : problem)
        object[valid_utf8(key)] = valid_utf8(value);
      problems.emplace_back(std::move(object));
    }
    line["problems"] = std::move(problems);
  }
  return boost::json::serialize(line) + "\n";
}

std::string to_listing(record_t const& record) {
  std::string out = record.path;
  if (record.message != 0)
    out += ":" + std::to_string(record.message);
  out += "\n";
  if (!record.error.empty())
    out += "  (not imported: " + record.error + ")\n";
  else if (!record.imported)
    out += "  (not imported: not an e-mail message type)\n";
  else if (record.attributes.empty())
    out += "  (no attributes)\n";
  for (auto const& [name, value] : record.attributes) {
    char padded[64];
    std::snprintf(padded, sizeof padded, "%-32s = ", name.c_str());
    out += padded;
    if (auto const* text = std::get_if<std::string>(&value)) {
      out += quoted(*text) + "\n";
    } else if (auto const* instant = std::get_if<importer::instant_t>(&value)) {
      auto const d = split(*instant);
      char buffer[48];
      std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02u %02ld:%02ld:%02ld +0000\n", d.year, d.month, d.day, d.hours,
                    d.minutes, d.seconds);
      out += buffer;
    } else {
      out += "(\n";
      auto const& list = std::get<std::vector<std::string>>(value);
      for (std::size_t i = 0; i < list.size(); ++i)
        out += "    " + quoted(list[i]) + (i + 1 < list.size() ? ",\n" : "\n");
      out += ")\n";
    }
  }
  if (record.problems) {
    // A problem's context may span lines; its continuation lines are
    // indented further so each problem stays one block.
    for (quern::error::record_t const& problem : *record.problems) {
      std::string line = "  problem: " + quern::error::to_s(problem);
      for (std::size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 1)
        line.insert(at + 1, "    ");
      out += line + "\n";
    }
  }
  return out + "\n";
}

} // namespace cli

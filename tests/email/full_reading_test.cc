// SPDX-License-Identifier: MIT
// The full reading's additions to the body walk: HTML text where there is no
// plain text, every alternative looked at, the file name of every part; and
// the parts it reads: libxml2 HTML to text, attachment names.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "email/attachment_name.h"
#include "email/body.h"
#include "email/calendar.h"
#include "email/html_text.h"
#include "error/handler.h"
#include "importer/import.h"
#include "tests/support/strings.h"

namespace {

std::string const marker = email::no_text_marker;

using test_support::repeat, test_support::thread_seconds;

struct walked_t {
  std::string text;
  std::vector<std::string> names;
};

walked_t walk(std::string const& message, email::reading_t reading) {
  char const* cursor = message.data();
  char const* const end = cursor + message.size();
  auto headers = email::quick_parse_headers(cursor, end, importer::wanted_headers(), reading);
  walked_t result;
  email::body_t body = email::read_body(cursor, end, headers, true, reading, true);
  result.text = body.text.value_or(email::no_text_marker);
  for (email::attachment_t& attachment : body.attachments)
    result.names.push_back(std::move(attachment.file_name));
  return result;
}

// A multipart entity of subtype over parts, its boundary given so that one
// may nest in another.
std::string multipart(std::string const& subtype, std::vector<std::string> const& parts, std::string const& b = "b") {
  std::string body = "Content-Type: multipart/" + subtype + "; boundary=\"" + b + "\"\n\npreamble\n";
  for (auto const& part : parts)
    body += "--" + b + "\n" + part + "\n";
  return body + "--" + b + "--\n";
}

std::string nested(std::string const& subtype, std::vector<std::string> const& parts) {
  return multipart(subtype, parts, "c");
}

std::string const plain = "Content-Type: text/plain\n\nplain words";
std::string const html = "Content-Type: text/html\n\n<p>html <b>words</b></p>";
std::string const html_file =
    "Content-Type: text/html\nContent-Disposition: attachment; filename=page.html\n\n<p>x</p>";
std::string const pdf = "Content-Type: application/pdf; name=\"a.pdf\"\nContent-Disposition: attachment\n\n%PDF";
std::string const png = "Content-Type: image/png\nContent-Disposition: inline; filename=logo.png\n\nPNG";

std::string const calendar = "Content-Type: text/calendar; method=REQUEST\n\nBEGIN:VCALENDAR\nBEGIN:VEVENT\n"
                             "SUMMARY:Review\nLOCATION:Room 4\nEND:VEVENT\nEND:VCALENDAR";

std::string enclosed(std::string const& entity) {
  return "Content-Type: message/rfc822\n\nSubject: inner\n" + entity;
}

std::string const base64_text = "Content-Type: text/plain\nContent-Transfer-Encoding: base64\n\n";

// What the full reading reads and repairs in the walk, each beside the desktop
// reading's text, which stays as it was.
TEST(full_walk, reads_and_repairs_beside_the_desktop_reading) {
  struct case_t {
    std::string message, desktop, full;
    std::vector<std::string> names;
  } const cases[] = {
      {"Content-Type: text/html; charset=iso-8859-1\nContent-Transfer-Encoding: quoted-printable\n\n"
       "<meta charset=3Dutf-8><p>caf=E9</p>",
       marker,
       "caf\xC3\xA9\n",
       {}},
      // An alternative gives its plain part whatever the order, else its HTML.
      {multipart("alternative", {html, plain}), marker, "plain words", {}},
      {multipart("alternative", {html, "Content-Type: text/plain\n\n"}), marker, "html words\n", {}},
      {multipart("alternative", {nested("related", {html, png}), plain}), marker, "plain words", {"logo.png"}},
      {multipart("alternative", {nested("related", {html, png})}), marker, "html words\n", {"logo.png"}},
      // A mixed message appends an inline HTML part; an attached one is a file.
      {multipart("mixed", {plain, html}), "plain words", "plain words\nhtml words\n", {}},
      {multipart("mixed", {plain, html_file, pdf}), "plain words", "plain words", {"page.html", "a.pdf"}},
      // Only the first part of related or signed gives text; all give names.
      {multipart("related", {html, png, pdf}), marker, "html words\n", {"logo.png", "a.pdf"}},
      {"Content-Type: application/pdf\nContent-Disposition: attachment; filename=alone.pdf\n\n%PDF",
       marker,
       marker,
       {"alone.pdf"}},
      // Joined texts keep their words apart; where a line break stands at
      // the join, no second one is put.
      {multipart("mixed", {plain, "Content-Type: text/plain\n\nmore\n", plain, "Content-Type: text/plain\n\n\nend"}),
       "plain wordsmore\nplain words\nend",
       "plain words\nmore\nplain words\nend",
       {}},
      {multipart("mixed", {plain, enclosed(plain)}), "plain wordsplain words", "plain words\nplain words", {}},
      // Any disposition but an attachment's is inline.
      {"Content-Disposition: quoted-printable\n\nbody", marker, "body", {}},
      {"Content-Disposition: foo; filename=notes.txt\n\nbody", marker, "body", {"notes.txt"}},
      {"Content-Disposition: attachement; filename=notes.txt\n\nbody", marker, marker, {"notes.txt"}},
      // The related root: named by start, else the first part not attached.
      {multipart("related", {pdf, html}), marker, "html words\n", {"a.pdf"}},
      {"Content-Type: multipart/related; start=\"<r@x>\"; boundary=b\n\n--b\n" + html + "\n--b\n" +
           "Content-ID: <r@x>\n\nroot\n--b--\n",
       marker,
       "root",
       {}},
      // White space between base64 groups carries no data; a footer after
      // a blank line is still passed through on its own line.
      {base64_text + "YWJj\n\nZGVm\n \t\n\nZ2hp\n\n\n", "abc\ndef\n\nghi\n\n", "abcdefghi", {}},
      {base64_text + "YWJj\n\nHello world\n", "abc\nHello world\n", "abc\nHello world\n", {}},
      {base64_text + "YWJj\r\nZGVm \r\n", "YWJj\r\nZGVm \r\n", "abcdef", {}},
      // Messages enclosed in parts walked only for names are opened, an
      // encoded one too.
      {multipart("report", {plain, enclosed(nested("mixed", {plain, pdf}))}), "plain words", "plain words", {"a.pdf"}},
      {multipart("digest", {enclosed(plain), enclosed(png)}), "plain words", "plain words", {"logo.png"}},
      // Every part of a digest is read; one without a Content-Type is a
      // message when it begins with a header, else text.
      {multipart("digest",
                 {"\nSubject: one\n\nfirst", "\nuntyped: a note", "\na note", "\nSubject : two\n\nsecond", png}),
       "Subject: one\n\nfirst",
       "first\na note\nsecond",
       {"logo.png"}},
      // A boundary after an empty parameter is found.
      {"Content-Type: multipart/mixed;; boundary=\"b\"\n\n--b\n" + plain + "\n--b--\n", marker, "plain words", {}},
      // A message that is only an encoded message is decoded, its CR LF read as LF.
      {"Content-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n"
       "U3ViamVjdDogaW5uZXINCkNvbnRlbnQtVHlwZTogdGV4dC9wbGFpbg0KDQpoaWRkZW4gd29yZHM=\n",
       marker,
       "hidden words",
       {}},
      {"Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\nSubject: x\n\ncaf=C3=A9",
       "caf=C3=A9",
       "caf\xC3\xA9",
       {}},
      // Parallel and unknown subtypes read as mixed; signed keeps its content.
      {multipart("parallel", {plain, html}), "plain words", "plain words\nhtml words\n", {}},
      {multipart("x-unheard-of", {plain, plain}), "plain words", "plain words\nplain words", {}},
      {multipart("signed", {plain, "Content-Type: text/plain\n\nsignature"}), "plain words", "plain words", {}},
      {multipart("related", {html, "Content-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n"
                                   "U3ViamVjdDogaW5uZXIKQ29udGVudC1UeXBlOiBpbWFnZS9wbmc7IG5hbWU9eC5wbmcKClBORw=="}),
       marker,
       "html words\n",
       {"x.png"}},
      // A calendar gives its events where nothing else gives text, after HTML.
      {calendar, marker, "Review\nRoom 4\n", {}},
      {multipart("alternative", {calendar, html}), marker, "html words\n", {}},
      {multipart("alternative", {calendar, "Content-Type: text/plain\n\n"}), marker, "Review\nRoom 4\n", {}},
      {multipart("alternative", {calendar, plain}), marker, "plain words", {}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.message);
    EXPECT_EQ(walk(c.message, email::reading_t::desktop).text, c.desktop);
    auto const full = walk(c.message, email::reading_t::full);
    EXPECT_EQ(full.text, c.full);
    EXPECT_EQ(full.names, c.names);
  }
}

// Messages opened only for their names are decoded within the walk's
// budget, as those it reads for text are: past it their names are not read.
TEST(full_walk, decoding_for_names_is_bounded) {
  std::string filler;
  while (filler.size() < (4u << 20))
    filler += std::string(75, 'y') + "\n";
  auto const report = [&filler](int levels) {
    std::string chain;
    for (int i = 0; i < levels; ++i)
      chain += "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\n";
    return multipart("report", {plain, chain + "Content-Type: text/plain; name=t.txt\n\nT" + filler});
  };
  EXPECT_EQ(walk(report(3), email::reading_t::full).names, std::vector<std::string>{"t.txt"});
  EXPECT_EQ(walk(report(12), email::reading_t::full).names, std::vector<std::string>{});
}

TEST(calendar_text, reads_the_events_title_place_and_description) {
  std::pair<std::string, std::string> const cases[] = {
      {"BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nDTSTART:20250101T100000Z\r\nDESCRIPTION:Agenda:\\n1\\, 2\\; 3 \\\\ x\\q\r\n"
       "LOCATION;ALTREP=\"cid:a:b;c\":Hall\r\nSUMMARY;LANGUAGE=de:Tref\r\n fen\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n",
       "Treffen\nHall\nAgenda:\n1, 2; 3 \\ x\\q\n"},
      // An alarm's description is not the event's; each event in turn.
      {"BEGIN:VEVENT\nsummary:One\nBEGIN:VALARM\nDESCRIPTION:Reminder\nEND:VALARM\nEND:VEVENT\n"
       "BEGIN:VTODO\nSUMMARY:not an event\nEND:VTODO\nBEGIN:VEVENT\nSUMMARY:Two\nLOCATION:\n",
       "One\nTwo\n"},
      // A fold inside a multi-byte character is undone before anything else.
      {"BEGIN:VEVENT\nSUMMARY:caf\xC3\n\t\xA9\nEND:VEVENT", "caf\xC3\xA9\n"},
      {"SUMMARY:outside any event\nBEGIN:VEVENT\nno colon\nEND:VEVENT\n", ""},
  };
  for (auto const& [input, expected] : cases)
    EXPECT_EQ(email::calendar_text(input.data(), input.data() + input.size()), expected) << input;
  // Folded into a million one-byte lines: read in one linear pass.
  std::string const folded = "BEGIN:VEVENT\nSUMMARY:" + repeat("\n x", 1'000'000) + "\nEND:VEVENT\n";
  EXPECT_EQ(email::calendar_text(folded.data(), folded.data() + folded.size()), std::string(1'000'000, 'x') + "\n");
}

// What each kind of element leaves in the text, read at every depth: as
// written, with the element that crosses max_html_depth at each point of the
// row (the parser's stack hands over to the flat reader there), and wholly
// below the limit. The text is the same everywhere; the depth problem is
// recorded once when the limit is crossed and never otherwise.
TEST(html_text, block_elements_read_the_same_at_every_depth) {
  std::pair<std::string, std::string> const rows[] = {
      {"<p>one</p><p>two</p>three", "one\ntwo\nthree\n"},
      {"<p>left open<p>next", "left open\nnext\n"},
      {"a<div>b</div>c", "a\nb\nc\n"},
      {"a<br>b<br/>c<BR>d<br/><br>e", "a\nb\nc\nd\ne\n"},
      {"<ul><li>x</li><li>y<li>z</ul>after", "x\ny\nz\nafter\n"},
      {"<table><tr><td>a</td><td>b</td></tr><tr><th>c</th><td>d</td></tr></table>end", "a b\nc d\nend\n"},
      {"<h1>Title</h1>body<h3>Sub</h3>", "Title\nbody\nSub\n"},
      {"<blockquote>quoted <blockquote>twice</blockquote></blockquote>reply", "quoted\ntwice\nreply\n"},
      // Spacing inside pre is collapsed like everywhere else.
      {"<pre>  two   spaces\n  and a line</pre>x", "two spaces and a line\nx\n"},
      {"a<b>b</b><i>c</i> <span>d</span>", "abc d\n"},
      {"<hr>rule<dl><dt>term<dd>meaning</dl>", "rule\nterm\nmeaning\n"},
      {"<script type=\"x\">var s = '<p>no</p>';</script>yes<style>p > a {}</style>!", "yes!\n"},
      {"<SCRIPT>if (a </b) {}</SCRIPT>after", "after\n"},
      {"<title>T</title><template><p>hidden</p></template>shown", "shown\n"},
      {"see <a href=\"x>y\" title='<p>'>link</a> text", "see link text\n"},
      {"fish &amp; chips &lt;3 &gt; &quot;q&quot; &#39;s&#x27;", "fish & chips <3 > \"q\" 's'\n"},
      {"&eacute;t&eacute; &euro;&#8364;&#x20AC;5&nbsp;now", "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC"
                                                            "5 now\n"},
      {"&bogus; &amp and &#65 &#0;&#xD800;&#x110000;&#;.", "&bogus; &amp and A .\n"},
      {"1 < 2 <3 <= 4", "1 < 2 <3 <= 4\n"},
      {"a<!DOCTYPE html>b<?php x ?>c", "abc\n"},
      // Bogus comments are dropped as browsers drop them; "< " and "<3" stay.
      {"V<? x >IA<?xml y>GR</nothing>A", "VIAGRA\n"},
      {"G</>UA</ >RA <!x>d<! y>e</3>f <i>i</i>", "GUARA def i\n"},
      {"a<![CDATA[b]]>c", "ac\n"},
      {"", ""},
      {"<div>  lots \n\t of   <i>space</i> </div>", "lots of space\n"},
      {"a<!-- hidden -->b<!-- <p>also</p> -->c", "abc\n"},
      {"<p>unclosed <b>bold <i>both", "unclosed bold both\n"},
      // Elements the parser leaves open must not pile up to the depth limit.
      {repeat("<wbr>a<WBR/>", 1000) + "<p>end", repeat("a", 1000) + "\nend\n"},
      // The caller has converted to UTF-8; a declared charset changes nothing.
      {"<meta charset=\"iso-8859-1\"><p>\xC3\xA9t\xC3\xA9</p>", "\xC3\xA9t\xC3\xA9\n"},
  };
  for (auto const& [html, expected] : rows) {
    for (std::size_t const wrappers :
         {std::size_t{0}, email::max_html_depth - 3, email::max_html_depth - 2, email::max_html_depth - 1,
          email::max_html_depth, email::max_html_depth + 1, email::max_html_depth + 20}) {
      SCOPED_TRACE(html + " under " + std::to_string(wrappers) + " divs");
      std::string const document_text = repeat("<div>", wrappers) + html;
      std::vector<char> document(document_text.begin(), document_text.end());
      quern::error::handler_t problems;
      EXPECT_EQ(email::html_to_text(document, &problems), expected);
      std::size_t const wanted = wrappers == 0 ? 0 : wrappers > email::max_html_depth ? 1 : problems.size();
      ASSERT_EQ(problems.size(), wanted);
      ASSERT_LE(problems.size(), 1u);
      for (auto const& entry : problems.entries()) {
        EXPECT_EQ(entry.code, quern::error::code_t::html_too_deep);
        EXPECT_EQ(entry.record.at("description"), "HTML nested deeper than 512 elements (read flat below that)");
      }
    }
  }
}

// Runs check in a child process, where the peak resident size starts fresh,
// and returns its exit status.
int in_child(std::function<int()> const& check) {
  pid_t const child = fork();
  if (child == 0)
    _exit(check());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

long peak_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Hostile documents: each is read in bounded time (a quadratic parse of these
// sizes would take hours) and within its own size plus 64 MiB of peak memory
// beyond the document itself.
TEST(html_text, hostile_documents_stay_linear_and_bounded) {
  struct case_t {
    char const* what;
    std::function<std::string()> make;
    std::string expected;
  } const cases[] = {
      {"a 20 MB attribute", [] { return "<p title=\"" + std::string(20 << 20, 'a') + "\">x</p> tail\n"; }, "x\ntail\n"},
      {"a million nested tags", [] { return "top" + repeat("<div>", 1'000'000) + "deep"; }, "top\ndeep\n"},
      {"a million unmatched closers", [] { return repeat("<b>", 300) + repeat("</i>", 1'000'000) + "end"; }, "end\n"},
      {"an unterminated 20 MB comment", [] { return "before<!--" + std::string(20 << 20, '-'); }, "before\n"},
      {"20 MB of '<'", [] { return std::string(20 << 20, '<'); }, std::string(20 << 20, '<') + "\n"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    int const status = in_child([&] {
      std::string const html = c.make();
      std::vector<char> document(html.begin(), html.end());
      long const before = peak_kib();
      auto const start = std::chrono::steady_clock::now();
      std::string const text = email::html_to_text(document);
      auto const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      long grown = peak_kib() - before;
      if (text != c.expected)
        return 1;
#ifdef __SANITIZE_ADDRESS__ // its quarantine keeps freed memory resident
      grown = 0;
#endif
      if (grown > static_cast<long>(html.size() / 1024) + 64 * 1024)
        return 2;
      return seconds < 60 ? 0 : 3;
    });
    EXPECT_EQ(status, 0) << "1: wrong text, 2: too much memory, 3: too slow";
  }
}

// The best CPU time of a few readings of html, and its text.
std::pair<double, std::string> reading_cost(std::string const& html) {
  double best = 1e9;
  std::string text;
  for (int run = 0; run < 3; ++run) {
    std::vector<char> document(html.begin(), html.end());
    double const start = thread_seconds();
    text = email::html_to_text(document);
    best = std::min(best, thread_seconds() - start);
  }
  return {best, text};
}

// Deep documents, read flat past the depth limit, cost what a shallow one of
// the same size does: a rescan of the rest of the document per tag or per
// text run would cost thousands of times more at this size.
TEST(html_text, deep_documents_cost_what_shallow_ones_do) {
  constexpr std::size_t n = 200'000;
  struct row_t {
    char const* what;
    std::string html, expected;
  } const rows[] = {
      {"nested blocks with text", repeat("<div>a", n) + repeat("</div>", n) + "end", repeat("a\n", n) + "end\n"},
      {"nested spans and their closers", repeat("<span>", n) + "x&amp;" + repeat("</span>", n) + "end", "x&end\n"},
      {"nested cells with entities", repeat("<td>&lt;", n), repeat("< ", n - 1) + "<\n"},
      {"nested quotes, each with an open script", repeat("<blockquote><script>", n / 2), ""},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.what);
    std::string plain = repeat("<p>a &amp; b</p>", row.html.size() / 16 + 1);
    plain.resize(row.html.size());
    double const reference = reading_cost(plain).first;
    auto const [cost, text] = reading_cost(row.html);
    EXPECT_EQ(text, row.expected);
    EXPECT_LE(cost, 20 * reference) << cost / reference << " times the shallow document's cost";
  }
}

TEST(attachment_name, reads_every_way_of_naming_a_file) {
  struct case_t {
    std::string disposition, type, name;
  } const cases[] = {
      {"", "application/pdf; name=\"old.pdf\"", "old.pdf"},
      {"attachment; filename=new.pdf", "application/pdf; name=old.pdf", "new.pdf"},
      {"inline", "text/plain; charset=utf-8", ""},
      {"attachment; filename=\"a \\\"quoted\\\" name\"", "", "a \"quoted\" name"},
      {"attachment; filename=\"a; b.txt\"; size=3", "", "a; b.txt"},
      // RFC 2231: a single extended value, continuations, in any order.
      {"attachment; filename*=utf-8''%E2%82%AC%20rates.txt", "", "\xE2\x82\xAC rates.txt"},
      {"attachment; filename*1*=%20two; filename*0*=utf-8''one; filename*2=\" three\"", "", "one two three"},
      {"attachment; filename=fallback.txt; filename*=utf-8''%C3%A9.txt", "", "\xC3\xA9.txt"},
      {"", "text/plain; name*=utf-8''n%C3%A4me.txt", "n\xC3\xA4me.txt"},
      // RFC 2047 words inside the quoted value, as many mailers write them.
      {"attachment; filename=\"=?utf-8?B?w6l0w6kucGRm?=\"", "", "\xC3\xA9t\xC3\xA9.pdf"},
      {"attachment; filename=\"=?iso-8859-1?Q?r=E9sum=E9?= final.doc\"", "", "r\xC3\xA9sum\xC3\xA9 final.doc"},
      // Controls become spaces, so a name is one line.
      {"attachment; filename*=utf-8''a%0Ab%00c", "", "a b c"},
      {"attachment; filename*=utf-8''", "application/x; name=other", "other"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(email::attachment_name(c.disposition, c.type), c.name) << c.disposition << " | " << c.type;
}

TEST(attachment_name, many_sections_cost_linear_time) {
  std::string disposition = "attachment";
  for (int i = 0; i < 200'000; ++i)
    disposition += "; filename*" + std::to_string(i % 10000) + "=x";
  auto const start = std::chrono::steady_clock::now();
  std::string const name = email::attachment_name(disposition, "");
  EXPECT_EQ(name.size(), email::max_name_sections);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 20);
}

} // namespace

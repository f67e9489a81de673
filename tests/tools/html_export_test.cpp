// Compares the source of exported pages. scripts/html_check.sh checks the pages in a browser.

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class HtmlExportTest : public ExportSample {
 protected:
  std::string out() const { return folder.file("out"); }

  void make_pages(const Arguments& more = {}) {
    std::filesystem::remove_all(out());
    Arguments arguments = {"export", store(), "--format", "html", "--output", out()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    output(arguments);
  }

  std::string index() const { return read_file(out() + "/index.html"); }
  std::string page(const std::string& name) const { return read_file(out() + "/pages/" + name); }

  Rows page_names() const {
    Rows names;
    for (const auto& entry : std::filesystem::directory_iterator(out() + "/pages")) {
      names.push_back(entry.path().filename().u8string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // All matches of the first group of the pattern.
  static Rows found(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    Rows result;
    for (std::sregex_iterator i(text.begin(), text.end(), regex); i != std::sregex_iterator();
         ++i) {
      result.push_back((*i)[1]);
    }
    return result;
  }

  static bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  // Sets the content of the only message, and returns its HTML.
  std::string shown(const std::string& sql) {
    plant("update t_message set content=" + sql);
    make_pages();
    const std::string text = page("00001.html");
    const std::string begin = "<div class=\"t\" dir=\"auto\" lang=\"\">";
    const std::size_t at = text.find(begin) + begin.size();
    return text.substr(at, text.find("</div>", at) - at);
  }
};

TEST_F(HtmlExportTest, IndexLinksToAPagePerConversation) {
  import_sample();
  plant("update t_session set is_top=1,title='Tea' where session_type=3");
  make_pages();
  EXPECT_EQ(page_names(), (Rows{"00001.html", "00002.html", "00003.html"}));
  EXPECT_EQ(found(index(), "href=\"pages/([^\"]*)\""), page_names());
  EXPECT_TRUE(has(index(), "3 conversations · 6 messages · 6 unread"));
  EXPECT_EQ(found(index(), "class=\"name\" dir=\"auto\">([^<]*)<"), (Rows{"Tea", "u02", "room"}));
  EXPECT_TRUE(has(page("00001.html"), "<h1><bdi>Tea</bdi></h1>"));
  EXPECT_TRUE(has(page("00001.html"), "chatroom · <bdi>room</bdi> · 2 messages · "));
  EXPECT_EQ(found(page("00002.html"), "lang=\"\">([^<]*)</div>"), (Rows{"one", "two"}));
  EXPECT_TRUE(has(page("00002.html"), "href=\"../index.html\""));
}

TEST_F(HtmlExportTest, PagesLoadNothingAndRunNothing) {
  import_sample();
  make_pages();
  for (const std::string& text : {index(), page("00001.html")}) {
    EXPECT_TRUE(has(text,
                    "content=\"default-src 'none'; style-src 'unsafe-inline'; base-uri "
                    "'none'; form-action 'none'\""));
    EXPECT_TRUE(has(text, "<html lang=\"en\">"));
    for (const char* part : {"<script", "<img", "<link", "<iframe", "url(", "@import",
                             "http:", "https:", " style=\"", "src="}) {
      EXPECT_FALSE(has(text, part)) << part;
    }
    for (const char* part : {"<h1>", "<main", "<header>", "<footer>", "prefers-color-scheme:dark",
                             "@media print", "width=device-width"}) {
      EXPECT_TRUE(has(text, part)) << part;
    }
  }
}

TEST_F(HtmlExportTest, TextsAreShownAsText) {
  import(line({}));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"'<b>&amp;\"'''", "&lt;b&gt;&amp;amp;&quot;&#39;"},
      {"'</div></li><script>1</script>'", "&lt;/div&gt;&lt;/li&gt;&lt;script&gt;1&lt;/script&gt;"},
      {"'a'||char(10)||' b'||char(9)||'c'", "a\n b\tc"},
      {"'a'||char(13,10)||'b'", "a\nb"},
      {"'a'||char(13)||'b'", "a<span class=\"mark\">\\r</span>b"},
      {"cast(x'610062' as text)", "a<span class=\"mark\">\\x00</span>b"},
      {"char(27)||'[31m'", "<span class=\"mark\">\\x1b</span>[31m"},
      {"char(8238)||'x'||char(8236)",
       "<span class=\"mark\">\\u202e</span>x<span class=\"mark\">\\u202c</span>"},
      {"char(8295)", "<span class=\"mark\">\\u2067</span>"},
      {"'א'||char(8207)", "א\xE2\x80\x8F"},
      {"cast(x'61ffeda08062' as text)",
       "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
       "b"},
      {"'下午开会吗？ 👩‍🚀'", "下午开会吗？ 👩‍🚀"},
      {"null", ""},
  };
  for (const auto& [sql, html] : cases) EXPECT_EQ(shown(sql), html) << sql;
}

TEST_F(HtmlExportTest, NamesAreShownAsText) {
  import(line({}));
  const std::string bad = "\"><script>1</script>'&";
  const std::string safe = "&quot;&gt;&lt;script&gt;1&lt;/script&gt;&#39;&amp;";
  for (const std::string& text : {bad}) {
    std::string sql;
    for (const char c : text) sql.append(c == '\'' ? 2 : 1, c);
    plant("update t_message set session_id='../" + sql + "',sender='" + sql + "',object_name='" +
          sql + "';update t_session set session_id='../" + sql + "',title='" + sql + "',draft='" +
          sql + "'");
  }
  make_pages();
  EXPECT_EQ(page_names(), Rows{"00001.html"});
  for (const std::string& text : {index(), page("00001.html")}) {
    EXPECT_FALSE(has(text, "<script"));
    EXPECT_TRUE(has(text, safe));
  }
  const std::string text = page("00001.html");
  EXPECT_TRUE(has(text, "<title>" + safe + "</title>"));
  EXPECT_TRUE(has(text, "<bdi>../" + safe + "</bdi>"));
  EXPECT_TRUE(has(text, "<p class=\"kind\"><bdi>" + safe + "</bdi></p>"));
  EXPECT_TRUE(has(text, "lang=\"\">" + safe + "</div></div>\n</header>"));
}

TEST_F(HtmlExportTest, MessagesShowTheirSideStateAndTime) {
  import(line({{"content", "old"},
               { "sent_time",
                 1700000000000 }}) +
         line({{"content", "new"},
               {"sent_time", 1700000060000},
               { "is_mention",
                 true }}) +
         line({{"content", "newer"},
               { "sent_time",
                 1700000120000 }}));
  plant("update t_message set read_status=1 where id=1");
  std::string own;
  for (const int status : {0, 1, 2, 3}) {
    own += line({{"sender", "me"},
                 {"is_receive", false},
                 {"client_uid", 1 + status},
                 {"sent_status", status},
                 {"sent_time", 1700086400000 + status}});
  }
  import(own);
  plant("update t_message set sent_status=client_uid-1 where direction=0");
  make_pages();
  const std::string text = page("00001.html");
  EXPECT_EQ(found(text, "<li (?:id=\"i[0-9]+\" )?class=\"([^\"]*)\">"),
            (Rows{"in", "new", "in at", "in cont", "own", "own cont", "own cont", "own cont"}));
  EXPECT_EQ(found(text, "<h2[^>]*><time datetime=\"([^\"]*)\">"),
            (Rows{"2023-11-14", "2023-11-15"}));
  EXPECT_TRUE(has(text, ">Tuesday, 14 November 2023</time></h2>"));
  EXPECT_EQ(
      found(text, "T[0-9:]+Z\">[0-9:]+</time> · (.*)</p></div></li>"),
      (Rows{"read",
            "<span class=\"unread\">unread</span> · <span class=\"named\">mentions you</span>",
            "<span class=\"unread\">unread</span>", "sent", "sending",
            "<span class=\"bad\">failed</span>", "seen"}));
  EXPECT_TRUE(has(text, "<time datetime=\"2023-11-14T22:13:20Z\">22:13</time>"));
  EXPECT_EQ(found(text, "<bdi>(u01|me)</bdi>"), (Rows{"u01", "u01", "me"}));
}

TEST_F(HtmlExportTest, ShowsInvalidCodesAsTheyAre) {
  import(line({}) + line({}));
  plant(
      "update t_session set session_type='<kind>';"
      "update t_message set session_type='<kind>',direction=null,read_status=4294967296;"
      "update t_message set direction=0,sent_status=null where id=2");
  make_pages();
  const std::string text = page("00001.html");
  EXPECT_EQ(found(text, "<li id=\"i[0-9]+\" class=\"([^\"]*)\">"), (Rows{"in", "own"}));
  EXPECT_EQ(found(text, "T[0-9:]+Z\">[0-9:]+</time> · (.*)</p></div></li>"),
            (Rows{"<bdi>4294967296</bdi>", "<bdi>none</bdi>"}));
  EXPECT_TRUE(has(text, "<p class=\"facts\"><bdi>&lt;kind&gt;</bdi> · "));
}

TEST_F(HtmlExportTest, ShowsOverflowingCounters) {
  import_sample();
  plant("update t_session set unread_count=9223372036854775807");
  make_pages();
  EXPECT_TRUE(has(index(), " · 9223372036854775807 unread"));
  EXPECT_TRUE(has(page("00001.html"), ">9223372036854775807 unread<"));
}

TEST_F(HtmlExportTest, NamesAndPreviewsAreOnOneLine) {
  import(line({{ "content", "a\r\nb\nc\td\re" }}));
  plant("update t_session set title='א'||char(8207)||char(8238)");
  make_pages();
  EXPECT_EQ(found(index(), "</bdi>: <bdi>([^<]*)</bdi>"), Rows{"a b c d\\re"});
  EXPECT_EQ(found(index(), "class=\"name\" dir=\"auto\">([^<]*)<"), Rows{"א\xE2\x80\x8F\\u202e"});
  plant("update t_message set content='א'||char(8207)");
  make_pages();
  EXPECT_EQ(found(index(), "</bdi>: <bdi>([^<]*)</bdi>"), Rows{"א\xE2\x80\x8F"});
}

TEST_F(HtmlExportTest, OtherKindsOfMessagesAreCards) {
  import(line({{"object_name", "CV:ImgMsg"},
               { "content",
                 "{\"w\":1}" }}) +
         line({{"object_name", "CV:QbNtf"},
               { "content",
                 "" }}) +
         line({{"object_name", "CV:FileMsg"},
               { "content",
                 std::string(2000, 'x') }}));
  make_pages();
  const std::string text = page("00001.html");
  EXPECT_TRUE(has(text,
                  "<p class=\"kind\"><bdi>CV:ImgMsg</bdi></p><div class=\"t raw\" dir=\"auto\" "
                  "lang=\"\">{&quot;w&quot;:1}</div>"));
  EXPECT_TRUE(has(text, "<p class=\"kind\"><bdi>CV:QbNtf</bdi></p><p class=\"meta\">"));
  EXPECT_TRUE(has(text, "<details><summary class=\"kind\"><bdi>CV:FileMsg</bdi>, 2 KiB</summary>"));
}

TEST_F(HtmlExportTest, HeaderShowsSettingsOfTheConversation) {
  import(line({{ "is_mention", true }}));
  plant("update t_session set is_top=1,silence=1,draft='not yet'||char(10)||'sent'");
  make_pages();
  const std::string text = page("00001.html");
  EXPECT_EQ(found(text, "class=\"chip(?: [a-z]+)?\">([^<]*)<"),
            (Rows{"Pinned", "Muted", "1 unread", "1 mention"}));
  EXPECT_TRUE(has(text, "<b>Draft</b><div class=\"t\" dir=\"auto\" lang=\"\">not yet\nsent</div>"));
  EXPECT_TRUE(
      has(index(), "pinned</span><span class=\"tag\">muted</span><span class=\"tag\">draft"));
}

TEST_F(HtmlExportTest, LargeConversationsAreSplitByMonth) {
  // 144 messages per day from the middle of November: each month needs more than one page.
  import_many(6000);
  make_pages();
  const Rows names = page_names();
  EXPECT_EQ(names, (Rows{"00001-2.html", "00001-3.html", "00001-4.html", "00001.html"}));
  std::set<std::string> ids;
  std::vector<std::size_t> sizes;
  for (const std::string& name : names) {
    const Rows here = found(page(name), "<li id=\"i([0-9]+)\"");
    sizes.push_back(here.size());
    ids.insert(here.begin(), here.end());
  }
  EXPECT_EQ(ids.size(), 6000U);
  const auto in_november = static_cast<std::size_t>(
      std::stoi(rows("select count(*) from t_message where sent_time<1701388800000").at(0)));
  EXPECT_EQ(sizes, (std::vector<std::size_t>{in_november - 2000, 2000, 4000 - in_november, 2000}));

  // The link to a month leads to its first day.
  const std::string first = page("00001.html");
  EXPECT_EQ(found(first, "<li><a href=\"([^\"]*)\">[A-Z][a-z]+ 2023</a>"),
            (Rows{"00001.html#m0", "00001-3.html#m1"}));
  EXPECT_TRUE(has(first, " id=\"m0\"><h2 class=\"day\" id=\"d1\"><time datetime=\"2023-11-14\">"));
  EXPECT_TRUE(has(page("00001-3.html"),
                  " id=\"m1\"><h2 class=\"day\" id=\"d1\"><time datetime=\"2023-12-01\">"));
  EXPECT_EQ(found(page("00001-2.html"), "href=\"([^\"#]*)\">(?:←|Newer)"),
            (Rows{"00001.html", "00001-3.html", "00001.html", "00001-3.html"}));
  EXPECT_EQ(found(first, "Page ([0-9]+ of [0-9]+)"), (Rows{"1 of 4", "1 of 4"}));
  EXPECT_TRUE(has(first, "New messages"));
  EXPECT_FALSE(has(page("00001-2.html"), "New messages"));
}

TEST_F(HtmlExportTest, LongListHasSeveralPages) {
  import(line({}));
  plant(
      "with n(i) as (select 1 union all select i+1 from n where i<1100) "
      "insert into t_session(session_id,session_type,session_time) select 's'||i,2,i from n");
  make_pages();
  const std::string second = read_file(out() + "/index-2.html");
  EXPECT_EQ(found(index(), "href=\"pages/([^\"]*)\"").size(), 1000U);
  EXPECT_EQ(found(second, "href=\"pages/([^\"]*)\"").size(), 101U);
  EXPECT_TRUE(has(index(), "href=\"index-2.html\""));
  EXPECT_TRUE(has(second, "href=\"index.html\""));
}

TEST_F(HtmlExportTest, MessagesWithoutConversationHaveAPage) {
  import_sample();
  plant("delete from t_session where session_id='u02'");
  plant("update t_message set session_id=null,session_type=null where id=1");
  make_pages();
  EXPECT_EQ(page_names().size(), 4U);
  std::size_t messages = 0;
  int orphans = 0;
  for (const std::string& name : page_names()) {
    messages += found(page(name), "<li id=\"i([0-9]+)\"").size();
    orphans += has(page(name), "Not in the list of conversations") ? 1 : 0;
  }
  EXPECT_EQ(messages, 6U);
  EXPECT_EQ(orphans, 2);
}

TEST_F(HtmlExportTest, ShowsTimesBeyondTheCalendar) {
  import_sample();
  plant(
      "update t_message set sent_time=0 where id=1;"
      "update t_message set sent_time=9223372036854775807 where id=2;"
      "update t_message set sent_time='soon' where id=3");
  make_pages({"room"});
  EXPECT_EQ(page_names().size(), 2U);
  std::string both = page("00001.html") + page("00002.html");
  EXPECT_TRUE(has(both, "<span>no date (0)</span>"));
  EXPECT_TRUE(has(both, "<span>no date (9223372036854775807)</span>"));
  EXPECT_TRUE(has(index(), "chosen conversations only"));
}

TEST_F(HtmlExportTest, MessagesWithoutDateAreNotGrouped) {
  import(line({}) + line({}));
  plant(
      "update t_message set sent_time=-9223372036854775807-1 where id=1;"
      "update t_message set sent_time=9223372036854775807 where id=2");
  make_pages();
  EXPECT_EQ(found(page("00001.html"), "<li id=\"i[0-9]+\" class=\"([^\"]*)\">"),
            (Rows{"in", "in"}));
}

TEST_F(HtmlExportTest, EmptyStoreHasAnIndex) {
  import(line({}));
  plant("delete from t_message");
  make_pages();
  EXPECT_TRUE(has(page("00001.html"), "No messages"));
  plant("delete from t_session");
  make_pages();
  EXPECT_TRUE(has(index(), "No conversations"));
  EXPECT_EQ(page_names(), Rows{});
}

}  // namespace
}  // namespace corvan_test

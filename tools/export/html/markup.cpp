#include "tools/export/html/markup.h"

#include <array>

#include "tools/export/html/text.h"

namespace corvan_tool {

namespace {

// Each page has it, so that a page alone can be sent to somebody.
constexpr const char* kStyle =
    ":root{color-scheme:light dark;--page:#eef1f5;--text:#1b2430;--soft:#586472;--line:#d8dee6;"
    "--card:#fff;--own:#d9ecff;--own-soft:#4a5c70;--link:#0b57a8;--warn:#8a4b00;--warn-back:#ffeecb;"
    "--bad:#b3261e;--new:#0a6b4b;--c0:#a3333d;--c1:#8a4b08;--c2:#5a6000;--c3:#1f6b3a;--c4:#0b6672;"
    "--c5:#1f5fa8;--c6:#5b4bb5;--c7:#963a86;--on:#fff}\n"
    "@media(prefers-color-scheme:dark){:root{--page:#11161c;--text:#e4e9ef;--soft:#9aa7b5;"
    "--line:#2b3540;--card:#1b232c;--own:#15395c;--own-soft:#a9c2da;--link:#7ab8ff;--warn:#f2c063;"
    "--warn-back:#40300f;--bad:#ff9a91;--new:#63d3a6;--c0:#ff9d9d;--c1:#f0b066;--c2:#d0cf6a;"
    "--c3:#86d69b;--c4:#70d2dc;--c5:#8fc1ff;--c6:#bfb3ff;--c7:#f0a3df;--on:#11161c}}\n"
    "*{box-sizing:border-box}\n"
    "html{-webkit-text-size-adjust:100%;text-size-adjust:100%}\n"
    "body{margin:0 auto;padding:0 1rem 2rem;max-width:48rem;background:var(--page);"
    "color:var(--text);font:1rem/1.45 system-ui,-apple-system,\"Segoe UI\",Roboto,\"Noto Sans\","
    "\"PingFang SC\",\"Microsoft YaHei\",\"Noto Sans CJK SC\",sans-serif;overflow-wrap:anywhere}\n"
    "h1,h2,p,ol{margin:0;padding:0}ol{list-style:none}\n"
    "a{color:var(--link)}a:focus-visible,summary:focus-visible{outline:3px solid var(--link);"
    "outline-offset:2px;border-radius:.4rem}\n"
    ".skip{position:absolute;left:-99rem}.skip:focus{left:1rem;top:.5rem;background:var(--card);"
    "padding:.4rem .8rem;z-index:2}\n"
    "header{padding:1.5rem 0 1rem}header nav{margin-bottom:.6rem}header nav a{text-decoration:none}\n"
    "h1{font-size:1.6rem;line-height:1.2;font-weight:650;letter-spacing:-.01em}\n"
    ".facts{color:var(--soft);margin-top:.35rem;font-size:.92rem}\n"
    ".chips{display:flex;flex-wrap:wrap;gap:.4rem;margin-top:.7rem}\n"
    ".chip{font-size:.8rem;line-height:1.5;padding:.05rem .6rem;border-radius:1rem;"
    "border:1px solid var(--line);background:var(--card);color:var(--soft)}\n"
    ".chip.new{color:var(--new);border-color:currentColor}\n"
    ".chip.at{color:var(--warn);background:var(--warn-back);border-color:transparent}\n"
    ".draft{margin-top:.8rem;padding:.6rem .8rem;border:1px dashed var(--soft);"
    "border-radius:.7rem;background:var(--card)}.draft b{color:var(--warn);font-size:.85rem}\n"
    "details.jump{margin-top:.8rem}summary{cursor:pointer;color:var(--link)}\n"
    ".months{display:grid;grid-template-columns:repeat(auto-fill,minmax(8.5rem,1fr));"
    "gap:.15rem .8rem;margin-top:.5rem}.months span{color:var(--soft);font-size:.85rem}\n"
    ".pager{display:grid;grid-template-columns:1fr auto 1fr;gap:1rem;margin:1rem 0;"
    "color:var(--soft);font-size:.92rem}.pager :last-child{text-align:right}\n"
    // The pages of a conversation.
    ".day{position:sticky;top:.5rem;z-index:1;width:fit-content;margin:1.4rem auto .8rem;"
    "padding:.15rem .9rem;border-radius:1rem;background:var(--page);border:1px solid var(--line);"
    "color:var(--soft);font-size:.8rem;font-weight:600}\n"
    ".log{display:flex;flex-direction:column;align-items:flex-start}\n"
    ".log li{max-width:min(85%,36rem);margin-top:.8rem}.log .cont{margin-top:.2rem}\n"
    ".log .own{align-self:flex-end}\n"
    ".who{font-size:.8rem;font-weight:600;margin:0 .3rem .15rem}.own .who{text-align:right;color:var(--soft)}\n"
    ".b{padding:.45rem .8rem .35rem;border-radius:1.05rem;background:var(--card);"
    "border:1px solid var(--line)}\n"
    ".in .b{border-top-left-radius:.35rem}.own .b{background:var(--own);border-color:transparent;"
    "border-top-right-radius:.35rem}\n"
    ".t{white-space:pre-wrap;overflow:hidden;unicode-bidi:isolate}\n"
    ".at .b{border-color:var(--warn)}\n"
    ".meta{font-size:.75rem;color:var(--soft);text-align:right;margin-top:.1rem}"
    ".own .meta{color:var(--own-soft)}\n"
    ".meta .bad{color:var(--bad);font-weight:650}.meta .unread{color:var(--new)}"
    ".meta .named{color:var(--warn);font-weight:650}\n"
    ".kind{font-size:.78rem;font-weight:650;color:var(--soft);margin-bottom:.2rem}"
    ".own .kind{color:var(--own-soft)}\n"
    ".raw{font:.85rem/1.4 ui-monospace,SFMono-Regular,Menlo,Consolas,monospace}\n"
    ".log .new{align-self:stretch;max-width:none;display:flex;align-items:center;gap:.8rem;"
    "color:var(--new);font-size:.82rem;font-weight:650}"
    ".log .new::before,.log .new::after{content:\"\";flex:1;border-top:1px solid currentColor}\n"
    ".mark{font:.8em ui-monospace,Consolas,monospace;color:var(--warn);"
    "background:var(--warn-back);border-radius:.25rem;padding:0 .2rem;unicode-bidi:isolate}\n"
    ".none{color:var(--soft);text-align:center;padding:2rem 0}\n"
    // The list of conversations.
    ".list{background:var(--card);border:1px solid var(--line);border-radius:1rem;"
    "overflow:hidden}.list li+li{border-top:1px solid var(--line)}\n"
    ".list a{display:grid;grid-template-columns:2.75rem minmax(0,1fr) auto;gap:.1rem .8rem;"
    "padding:.75rem 1rem;color:inherit;text-decoration:none}"
    ".list a:hover,.list a:focus-visible{background:var(--page)}"
    ".list a:focus-visible{outline-offset:-3px}\n"
    ".sign{grid-row:span 2;width:2.75rem;height:2.75rem;border-radius:50%;display:grid;"
    "place-items:center;font-size:1.15rem;color:var(--on);overflow:hidden}\n"
    ".name{font-weight:600}.name,.last{overflow:hidden;text-overflow:ellipsis;white-space:nowrap;"
    "unicode-bidi:isolate;text-align:left}\n"
    ".when,.last{color:var(--soft);font-size:.88rem}.when{text-align:right;white-space:nowrap}\n"
    ".tags{display:flex;gap:.35rem;justify-content:flex-end;align-items:center;flex-wrap:wrap}\n"
    ".count{font-size:.75rem;font-weight:650;min-width:1.35rem;padding:.05rem .4rem;"
    "text-align:center;border-radius:1rem;background:var(--link);color:var(--on)}"
    ".count.at{background:var(--warn)}.count.mute{background:var(--soft)}\n"
    ".tag{font-size:.75rem;color:var(--soft)}\n"
    ".vh{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%);"
    "white-space:nowrap}\n"
    "footer{margin-top:2rem;color:var(--soft);font-size:.82rem;text-align:center}\n"
    ".c0{color:var(--c0)}.c1{color:var(--c1)}.c2{color:var(--c2)}.c3{color:var(--c3)}"
    ".c4{color:var(--c4)}.c5{color:var(--c5)}.c6{color:var(--c6)}.c7{color:var(--c7)}\n"
    ".sign.c0{background:var(--c0)}.sign.c1{background:var(--c1)}.sign.c2{background:var(--c2)}"
    ".sign.c3{background:var(--c3)}.sign.c4{background:var(--c4)}.sign.c5{background:var(--c5)}"
    ".sign.c6{background:var(--c6)}.sign.c7{background:var(--c7)}"
    "[class*=\"sign c\"]{color:var(--on)}\n"
    "@media(max-width:30rem){body{padding:0 .6rem 1.5rem}.log li{max-width:92%}"
    "h1{font-size:1.35rem}}\n"
    "@media print{:root{--page:#fff;--card:#fff;--own:#eef4fb;--text:#000;--soft:#444;"
    "--own-soft:#444;--line:#bbb;--on:#fff}body{max-width:none;padding:0;font-size:10.5pt}"
    "header nav,.pager,.jump,.skip{display:none}.day{position:static;break-after:avoid}"
    ".b{border-color:#bbb}.log li{break-inside:avoid}.sign{print-color-adjust:exact}"
    "::details-content{content-visibility:visible}}\n";

constexpr std::size_t kColours = 8;

}  // namespace

std::string page_begin(std::string_view title) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
         html_line(title) + "</title>\n<style>\n" + kStyle + "</style>\n</head>\n<body>\n";
}

std::string page_end() {
  return "<footer><p>Exported by corvan " CORVAN_VERSION
         ". Times are in UTC.</p></footer>\n</body>\n</html>\n";
}

std::string colour_class(std::string_view name) {
  std::uint32_t hash = 2166136261U;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return "c" + std::to_string((hash >> 8) % kColours);
}

std::optional<std::tm> calendar(int64_t time) {
  constexpr int kFirstYear = 1 - 1900;
  constexpr int kLastYear = 9999 - 1900;
  const auto seconds = static_cast<std::time_t>(time / 1000 - (time % 1000 < 0 ? 1 : 0));
  std::tm utc = {};
  if (time == 0 || gmtime_r(&seconds, &utc) == nullptr || utc.tm_year < kFirstYear ||
      utc.tm_year > kLastYear) {
    return std::nullopt;
  }
  return utc;
}

std::string formatted(const std::tm& time, TimeForm form) {
  std::array<char, 64> text = {};
  char* const to = text.data();
  const std::size_t size = text.size();
  switch (form) {
    case kInstant:
      std::strftime(to, size, "%Y-%m-%dT%H:%M:%SZ", &time);
      break;
    case kDate:
      std::strftime(to, size, "%Y-%m-%d", &time);
      break;
    case kClock:
      std::strftime(to, size, "%H:%M", &time);
      break;
    case kMonth:
      std::strftime(to, size, "%B %Y", &time);
      break;
    case kDay:
      std::strftime(to, size, "%A, ", &time);
      return to + std::to_string(time.tm_mday) + " " + formatted(time, kMonth);
  }
  return to;
}

std::string counted(int64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace corvan_tool

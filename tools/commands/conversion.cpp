#include "tools/commands/conversion.h"

#include <fmt/format.h>

#include <iostream>

#include "addons/search/message_search.h"
#include "tools/store/connection.h"
#include "tools/store/interrupt.h"
#include "tools/store/key.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

using Corvan::Conversion;
using Corvan::ConversionResult;

// The unfinished copy of a conversion. A signal that ends the program removes it.
class UnfinishedCopy {
 public:
  explicit UnfinishedCopy(const std::string& file) : path_(real_file(file) + ".converting") {
    make_unfinished("", [this] { return path_; });
  }
  UnfinishedCopy(const UnfinishedCopy&) = delete;
  UnfinishedCopy& operator=(const UnfinishedCopy&) = delete;
  // The library has removed it, or left one that it refuses to touch.
  ~UnfinishedCopy() {
    keep_unfinished(path_, [] {});
  }

 private:
  const std::string path_;
};

bool is_done(ConversionResult result) {
  return result == ConversionResult::kDone || result == ConversionResult::kAlreadyDone;
}

std::string failure_of(const Conversion& conversion, const ConversionTexts& texts) {
  const std::string detail = conversion.detail.empty() ? "" : " (" + conversion.detail + ")";
  switch (conversion.result) {
    case ConversionResult::kNoStore:
      return "no store here, or an empty one; name the folder that holds the file \"corvan\"";
    case ConversionResult::kNoKey:
      return refusal_text(Corvan::KeyRefusal::kNoKey);
    case ConversionResult::kWrongKey:
      return refusal_text(Corvan::KeyRefusal::kWrongKey);
    case ConversionResult::kNotEncrypted:
      return "not encrypted; " + texts.advice;
    case ConversionResult::kAlreadyEncrypted:
      return "encrypted with another key, or damaged; " + texts.advice;
    case ConversionResult::kInUse:
      return "in use by another process; no message was changed; close all clients and try again";
    case ConversionResult::kNoSpace:
      return "too little room for a second copy; no message was changed; make room in its folder";
    case ConversionResult::kDamaged:
      return "damaged" + detail +
             "; no message was changed; see 'corvan check' and 'corvan salvage'";
    default:
      return to_text(conversion.result) + detail + "; no message was changed";
  }
}

Conversion convert_store(const std::string& folder,
                         const std::function<Conversion(const cvrtc::Pathname& folder)>& convert) {
  require_regular_files(store_file(folder));
  require_no_lone_log(folder);
  const UnfinishedCopy copy(store_file(folder));
  return convert(folder_name(folder));
}

void print_conversion(const std::string& file, bool json, const ConversionTexts& texts,
                      ConversionResult result, double seconds) {
  const bool is_changed = result == ConversionResult::kDone;
  const int64_t bytes = store_sizes(file).file;
  if (json) {
    print_json({{"changed", is_changed}, {"file_bytes", bytes}, {"seconds", seconds}});
    return;
  }
  std::cout << fmt::format("{}: {}{}, {}; {} s\n", printable(file),
                           is_changed ? "" : "was already ", texts.done, size_text(bytes),
                           seconds_text(seconds));
}

// Whether the index is as plain, or as encrypted, as the store.
bool is_plain_as(const std::string& index, const std::string& file) {
  return is_plain_database(index) == is_plain_database(file);
}

// An index of the store before its conversion shows words of its messages, or can no longer be
// read.
void delete_search_index(const std::string& folder, ConversionResult result) {
  const std::string index = search_index_file(folder);
  if (!has_search_index(folder)) return;
  if (result == ConversionResult::kAlreadyDone && is_plain_as(index, store_file(folder))) return;
  if (!Corvan::MessageSearch::remove(folder_name(folder))) {
    throw ToolError(index +
                    ": belongs to the store before its conversion, and cannot be deleted; "
                    "delete it, because it may show words of messages");
  }
  std::cerr << "corvan: the old search index was deleted; make a new one with 'corvan search-index "
            << printable(folder) << "'\n";
}

}  // namespace

int convert_and_report(const std::string& folder, bool json, const ConversionTexts& texts,
                       const std::function<Conversion(const cvrtc::Pathname&)>& convert) {
  const Stopwatch stopwatch;
  const std::string file = store_file(folder);
  const Conversion conversion = convert_store(folder, convert);
  if (!is_done(conversion.result)) throw ToolError(file + ": " + failure_of(conversion, texts));
  print_conversion(file, json, texts, conversion.result, stopwatch.seconds());
  delete_search_index(folder, conversion.result);
  if (!conversion.detail.empty()) {
    throw ToolError(file + ": was " + texts.done + ", but its folder cannot be synced (" +
                    conversion.detail + "); after a power loss, it may be as before");
  }
  if (conversion.result == ConversionResult::kDone) require_output("the store was " + texts.done);
  return kOk;
}

}  // namespace corvan_tool

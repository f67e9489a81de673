#include "tools/store/library_store.h"

#include <cstddef>

#include "base/log_message.h"
#include "base/pathname.h"
#include "tools/store/connection.h"
#include "tools/store/key.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

std::string refusal_or(const std::string& failure) {
  const Corvan::KeyRefusal refusal = Corvan::StoreKeys::last_refusal();
  if (is_refused_key(refusal)) return refusal_text(refusal);
  return failure.empty() ? "cannot be opened" : failure;
}

}  // namespace

void silence_library() {
  cvrtc::LogMessage::SetSink([](cvrtc::LoggingSeverity, const std::string&) {});
}

LibraryStore::LibraryStore(const std::string& folder, const std::string& user) : key_(folder) {
  cvrtc::LogMessage::SetSink([this](cvrtc::LoggingSeverity /*severity*/, const std::string& text) {
    if (!failure_.empty()) return;
    const std::size_t last_field = text.rfind(";;;");  // SQLite's own words
    failure_ = last_field == std::string::npos ? text : text.substr(last_field + 3);
  });
  if (!(*this)->init_open_db(folder_name(folder), "", user)) {
    const std::string why = refusal_or(failure_);
    Corvan::CvDbSingleton::delete_instance();
    silence_library();
    throw ToolError(cvrtc::Pathname(folder, "corvan").pathname() + ": " + why);
  }
}

LibraryStore::~LibraryStore() {
  Corvan::CvDbSingleton::delete_instance();
  silence_library();
}

}  // namespace corvan_tool

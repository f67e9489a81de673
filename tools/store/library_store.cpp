#include "tools/store/library_store.h"

#include <cstddef>

#include "base/log_message.h"
#include "base/pathname.h"
#include "tools/store/connection.h"
#include "tools/ui/error.h"

namespace corvan_tool {

LibraryStore::LibraryStore(const std::string& folder, const std::string& user) {
  cvrtc::LogMessage::SetSink([this](cvrtc::LoggingSeverity /*severity*/, const std::string& text) {
    if (!failure_.empty()) return;
    const std::size_t last_field = text.rfind(";;;");  // SQLite's own words
    failure_ = last_field == std::string::npos ? text : text.substr(last_field + 3);
  });
  if (!(*this)->init_open_db(cvrtc::Pathname(unmistakable_path(folder), ""), "", user)) {
    const std::string why = failure_.empty() ? "cannot be opened" : failure_;
    Corvan::CvDbSingleton::delete_instance();
    cvrtc::LogMessage::SetSink(nullptr);
    throw ToolError(cvrtc::Pathname(folder, "corvan").pathname() + ": " + why);
  }
}

LibraryStore::~LibraryStore() {
  Corvan::CvDbSingleton::delete_instance();
  cvrtc::LogMessage::SetSink(nullptr);
}

}  // namespace corvan_tool

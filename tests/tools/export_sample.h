// The fixture of the tests of export and restore.

#ifndef TESTS_TOOLS_EXPORT_SAMPLE_H_
#define TESTS_TOOLS_EXPORT_SAMPLE_H_

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

// The first line of an export as CSV.
constexpr const char* kCsvHeadings =
    "\xEF\xBB\xBF"
    "id,kind,session_id,title,time_utc,sender,direction,object_name,content,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid\r\n";

class ExportSample : public ToolTest {
 protected:
  // Imports two messages each into the group "room", the chat room "room" and the private chat
  // "u02".
  void import_sample() {
    std::string all;
    for (const int kind : {2, 3, 1}) {
      for (const char* text : {"one", "two"}) {
        all += line({{"session_id", kind == 1 ? "u02" : "room"},
                     {"session_type", kind},
                     {"content", text},
                     {"sent_time", 1700000000000 + 1000 * ++imported_}});
      }
    }
    import(all);
  }

  // Adds messages to the group "room", one every ten minutes.
  void import_many(int count) {
    import(line({}));
    plant("with n(i) as (select 1 union all select i+1 from n where i<" +
          std::to_string(count - 1) +
          ") insert into t_message(session_id,session_type,object_name,content,sender,direction,"
          "sent_time) select 'room',2,'CV:TxtMsg','message '||i,'u0'||(1+i%4),1,"
          "1700000000000+i*600000 from n");
  }

  static std::vector<Json> lines(const std::string& text) {
    std::vector<Json> records;
    std::istringstream stream(text);
    for (std::string one; std::getline(stream, one);) records.push_back(Json::parse(one));
    return records;
  }

  // Exports the store with these arguments, and expects this error and no output.
  void expect_refused(const Arguments& more, const std::string& error) {
    Arguments arguments = {"export", store()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Listing before = listing(folder.path());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + error);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(listing(folder.path()), before);
  }

  // The names in the test's folder that begin with this text.
  Rows names_like(const std::string& beginning) const {
    Rows names;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::u8path(folder.path()))) {
      const std::string name = entry.path().filename().u8string();
      if (name.compare(0, beginning.size(), beginning) == 0) names.push_back(name);
    }
    return names;
  }

  // Waits until the output with this name exists, under its final or its temporary name. Returns
  // false if that takes too long.
  bool wait_for_unfinished(const std::string& name) const {
    for (int i = 0; i < 30000; ++i) {
      if (!names_like(name).empty()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

 private:
  int imported_ = 0;
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_EXPORT_SAMPLE_H_

#include "tests/tools/verify_fixture.h"

#include <filesystem>

namespace corvan_test {

void VerifyTest::make_store(const std::function<void(LibraryStore&)>& call) {
  std::filesystem::remove_all(store());
  std::filesystem::create_directory(store());
  LibraryStore open(store(), "me");
  call(open);
  EXPECT_EQ(open.failure(), "");
}

void VerifyTest::import_sample() {
  const Json lines = Json::array({
      {{"server_uid", "s1"}},
      {{"server_uid", "s2"}, {"is_mention", true}, {"sent_time", kTime + 1000}},
      {{"server_uid", "s3"}, {"sent_time", kTime + 2000}},
      {{"session_id", "u01"}, {"session_type", 1}, {"sent_time", kTime + 3000}},
      {{"session_id", "u01"},
       {"session_type", 1},
       {"sender", "me"},
       {"is_receive", false},
       {"client_uid", 42},
       {"sent_time", kTime + 4000}},
      {{"session_id", "hall"}, {"session_type", 3}, {"sent_time", kTime + 5000}},
  });
  std::string log;
  for (const Json& changes : lines) log += line(changes);
  import(log);
}

int64_t VerifyTest::save(LibraryStore& open, const std::string& room, int64_t time, bool mention,
                         bool history, const std::string& uid) {
  return open->save_message(room, Corvan::CV_GROUP, "CV:TxtMsg", "u01", "hi", true, 0, 0, mention,
                            time, 0, uid, history, false, true);
}

Json VerifyTest::verify(int status) {
  const Outcome outcome = run({"verify", store(), "--json"});
  EXPECT_EQ(outcome.status, status) << outcome.out;
  EXPECT_EQ(outcome.err, "");
  return Json::parse(outcome.out);
}

Rows VerifyTest::codes(const Json& report) {
  Rows all;
  for (const Json& finding : report["findings"]) all.push_back(finding["code"]);
  return all;
}

Json VerifyTest::finding(const Json& report, const std::string& code) {
  for (const Json& one : report["findings"]) {
    if (one["code"] == code) return one;
  }
  ADD_FAILURE() << "no " << code << " in " << report.dump(1);
  return {{"rows", Json::array({Json::object()})}, {"operations", Json::array()}};
}

void VerifyTest::expect_findings(const std::vector<Planted>& all) {
  import_sample();
  const std::string clean = read_file(file());
  for (const Planted& planted : all) {
    SCOPED_TRACE(planted.sql);
    write_file(file(), clean);
    plant(planted.sql);
    expect_finding(planted);
    if (planted.repair.is_null() && std::string(planted.rank) != "allowed") continue;
    expect_repair(planted);
  }
}

void VerifyTest::expect_finding(const Planted& planted) {
  const Json report = verify(std::string(planted.rank) == "note" ? 0 : 1);
  EXPECT_EQ(codes(report), Rows{planted.code});
  const Json found = finding(report, planted.code);
  EXPECT_EQ(found["class"], planted.rank);
  EXPECT_NE(found["text"], "");
  EXPECT_NE(found["explanation"], "");
  ASSERT_EQ(found["rows"].size(), 1U);
  const Json& row = found["rows"][0];
  EXPECT_EQ(row["name"], planted.name);
  EXPECT_EQ(row["stored"], planted.stored);
  EXPECT_EQ(row["derived"], planted.derived);
  EXPECT_EQ(row["messages"], Json(planted.messages));
  EXPECT_EQ(row["repair"], planted.repair);
  EXPECT_EQ(report[planted.rank], 1);
}

void VerifyTest::expect_repair(const Planted& planted) {
  const Rows before = rows(kContent);
  EXPECT_EQ(changes(repair(kAll)).empty(), planted.repair.is_null());
  if (planted.repair.is_null()) {
    EXPECT_EQ(rows(kContent), before);
  } else {
    EXPECT_EQ(codes(verify(0)), Rows{});
  }
  for (const std::string& name : backups()) std::filesystem::remove_all(folder.file(name));
}

Json VerifyTest::repair(const std::string& what, const Arguments& more) {
  Arguments arguments = {"verify", store(), "--repair", what, "--json"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return json(arguments);
}

Rows VerifyTest::changes(const Json& result) {
  Rows all;
  for (const Json& change : result["changes"]) {
    const std::string session =
        change["session_id"].is_null() ? "-" : change["session_id"].get<std::string>();
    all.push_back(change["repair"].get<std::string>() + " " + session + " " +
                  change["name"].get<std::string>() + " " + change["old"].dump() + " -> " +
                  change["new"].dump());
  }
  return all;
}

void VerifyTest::expect_refused(const Arguments& more, const std::string& error) {
  const Listing before = listing(store());
  Arguments arguments = {"verify", store(), "--repair", kAll};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + error + "\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(listing(store()), before);
  EXPECT_EQ(backups(), Rows{});
}

Rows VerifyTest::backups() const {
  Rows names;
  for (const auto& [name, content] : listing(folder.path())) {
    if (name.rfind("store.", 0) == 0) names.push_back(name);
  }
  return names;
}

}  // namespace corvan_test

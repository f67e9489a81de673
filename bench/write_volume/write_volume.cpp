// Measures how many bytes a save writes, by table and index, and what other indexes would change.
// The figures do not depend on the machine or its load.

#include <exception>
#include <iostream>

#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/write_volume/measured_store.h"

namespace corvan_bench {

namespace {

// Other indexes in the place of the schema's; an empty statement drops one.
struct Variant {
  const char* name;
  std::map<std::string, std::string> replaced;
};

std::map<std::string, std::string> client_uid(const std::string& columns) {
  return {{"t_message_client_uid", "create index t_message_client_uid on t_message" + columns}};
}
std::map<std::string, std::string> session(const std::string& columns) {
  return {{"t_message_session", "create index t_message_session on t_message" + columns}};
}

// First the index by conversation, with which a bound compares the schema.
std::vector<Variant> variants() {
  return {
      {"t_message_client_uid by conversation, client uid, sender",
       client_uid("(session_id,session_type,client_uid,sender)")},
      {"by conversation, client uid", client_uid("(session_id,session_type,client_uid)")},
      {"by conversation, client uid, id, sender",
       client_uid("(session_id,session_type,client_uid,id,sender)")},
      {"by client uid, type, conversation", client_uid("(client_uid,session_type,session_id)")},
      {"by client uid, sender, type", client_uid("(client_uid,sender,session_type)")},
      {"by client uid, type, without further columns", client_uid("(client_uid,session_type)")},
      {"t_message_session without columns after the time",
       session("(session_id,session_type,sent_time)")},
      {"t_message_session without object_name",
       session("(session_id,session_type,sent_time,id,direction,sent_status)")},
      {"without t_message_session_type", {{"t_message_session_type", ""}}},
      {"without t_message_uncovered", {{"t_message_uncovered", ""}}},
      {"without t_message_sent_time", {{"t_message_sent_time", ""}}},
      {"without t_session_latest_id and t_session_list",
       {{"t_session_latest_id", ""}, {"t_session_list", ""}}},
  };
}

struct Measured {
  Volume thousand;
  Volume one;
  Volume sent;
};

Measured measure(Traffic::Shape shape, const Sizes& sizes, const Variant& variant) {
  MeasuredStore store(shape, sizes, variant.replaced);
  Measured measured;
  measured.thousand = store.save(sizes.batches, 1000);
  measured.one = store.save(sizes.singles, 1);
  measured.sent = store.send(sizes.singles / 4);
  return measured;
}

Report::Row row_of(const std::string& name, const Volume::Tree& thousand, const Volume::Tree& one,
                   double all) {
  return {name,
          thousand.pages,
          thousand.logged,
          thousand.checkpointed,
          one.pages,
          100 * thousand.bytes() / all,
          one.bytes()};
}

void print_trees(Report& report, const std::string& title, const Measured& measured) {
  const Volume::Tree sum = measured.thousand.sum();
  std::vector<Report::Row> rows;
  for (const auto& [name, tree] : measured.thousand.trees) {
    const auto one = measured.one.trees.find(name);
    rows.push_back(row_of(
        name, tree, one == measured.one.trees.end() ? Volume::Tree{} : one->second, sum.bytes()));
  }
  rows.push_back(row_of("all", sum, measured.one.sum(), sum.bytes()));
  report.table(title,
               {"table or index", "1,000 messages: pages", "bytes logged", "bytes checkpointed",
                "1 message: pages", "1,000: share, %", "1: bytes"},
               rows);
}

double more(double bytes, double than) {
  return 100 * (bytes / than - 1);
}

int run(const Options& options) {
  const Sizes sizes = options.quick ? Sizes{5000, 100, 3, 40} : Sizes{100'000, 1000, 10, 1000};
  Report report("bytes", options);
  const Measured uniform = measure(Traffic::kUniform, sizes, {});
  const Measured zipf = measure(Traffic::kZipf, sizes, {});
  print_trees(report, "Written per transaction, uniform conversations", uniform);
  print_trees(report, "Written per transaction, Zipf conversations", zipf);

  std::vector<Report::Row> rows = {{"the schema's set: bytes", uniform.thousand.bytes,
                                    zipf.thousand.bytes, uniform.one.bytes, uniform.sent.bytes}};
  double ratio = 0;
  for (const Variant& variant : variants()) {
    const Measured u = measure(Traffic::kUniform, sizes, variant);
    const Measured z = measure(Traffic::kZipf, sizes, variant);
    if (rows.size() == 1) ratio = uniform.thousand.bytes / u.thousand.bytes;
    rows.push_back({variant.name, more(u.thousand.bytes, uniform.thousand.bytes),
                    more(z.thousand.bytes, zipf.thousand.bytes),
                    more(u.one.bytes, uniform.one.bytes), more(u.sent.bytes, uniform.sent.bytes)});
  }
  report.table("Bytes with other indexes, in percent more than with the schema's",
               {"indexes", "1,000, uniform", "1,000, Zipf", "1, uniform", "sent and acknowledged"},
               rows);
  if (!options.quick) {
    report.bound("bytes per 1,000 messages, to the index by conversation, client uid and sender",
                 ratio, 0.8);
  }
  return report.finish();
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  try {
    return corvan_bench::run(corvan_bench::parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}

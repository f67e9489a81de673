#include "bench/search/building.h"

#include "bench/support/timing.h"

namespace corvan_bench {

namespace {

void build_once(Contender& contender, double messages, Building& building) {
  contender.remove();
  const double before = processor_time();
  const double elapsed = time_of([&contender] { contender.build(); });
  building.processor.add((processor_time() - before) / messages);
  building.elapsed.add(elapsed / messages);
  building.bytes = contender.bytes() / messages;
}

}  // namespace

std::vector<Building> build(const std::vector<Contender*>& contenders, int rounds,
                            int64_t messages) {
  const auto count = static_cast<double>(messages);
  std::vector<Building> buildings(contenders.size());
  for (int round = 1; round <= rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      build_once(*contenders[i], count, buildings[i]);
      if (round < rounds) continue;
      contenders[i]->settle();
      buildings[i].settled = contenders[i]->bytes() / count;
      buildings[i].contender = contenders[i]->name();
    }
  }
  return buildings;
}

void print(const std::vector<Building>& buildings, const std::string& store, Report& report) {
  std::vector<Report::Row> rows;
  rows.reserve(buildings.size());
  for (const Building& building : buildings) {
    rows.push_back({building.contender, building.processor.median(), building.elapsed.median(),
                    building.bytes, building.settled});
  }
  report.table("Building the index, per message: " + store,
               {"contender", "processor time, us", "elapsed time, us", "bytes", "bytes, settled"},
               rows);
}

}  // namespace corvan_bench

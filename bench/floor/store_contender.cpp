#include <stdexcept>

#include "bench/floor/contenders.h"
#include "bench/floor/direct.h"
#include "bench/floor/fixture.h"
#include "db/cv_db_singleton.h"

namespace corvan_bench {

namespace {

using Corvan::CvDbSingleton;

class StoreContender final : public Direct<CvDbSingleton> {
 public:
  explicit StoreContender(const std::string& folder) : Direct(*CvDbSingleton::get_instance()) {
    if (!CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder), "", kUser)) {
      throw std::runtime_error("the store cannot be opened");
    }
  }
  ~StoreContender() override { CvDbSingleton::delete_instance(); }

  void run(const std::string& sql) override {
    CvDbSingleton::get_instance()->execute_none_query(sql);
  }
};

}  // namespace

std::unique_ptr<Contender> make_store_contender(const std::string& folder) {
  return std::make_unique<StoreContender>(folder);
}

}  // namespace corvan_bench

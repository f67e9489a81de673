#include "bench/search/query_sample.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "bench/search/random.h"
#include "bench/search/sampled_texts.h"

namespace corvan_bench {

namespace {

constexpr std::uint64_t kSeed = 7;
constexpr std::size_t kTriesPerQuery = 50;
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz";

class Sampler {
 public:
  Sampler(const std::string& store_file, std::size_t of_each_class)
      : store_file_(store_file),
        of_each_class_(of_each_class),
        texts_(store_file),
        random_(kSeed) {}

  std::vector<SearchQuery> sample();

 private:
  using Words = std::vector<std::string>;

  // Draws until there are enough different queries, or no others come.
  template <typename Draw>
  void add_drawn(QueryClass query_class, const Draw& draw) {
    std::set<Words> drawn;
    for (std::size_t i = 0; i < kTriesPerQuery * of_each_class_; ++i) {
      if (drawn.size() == of_each_class_) return;
      const std::optional<Words> words = draw();
      if (words && drawn.insert(*words).second) add(query_class, *words);
    }
  }

  void add(QueryClass query_class, Words words) {
    SearchQuery query;
    query.query_class = query_class;
    query.words = std::move(words);
    queries_.push_back(std::move(query));
  }

  void add_rare();
  void add_absent();
  void add_single_letters();
  void add_filtered();
  Words absent_candidates();

  std::optional<Words> word();
  std::optional<Words> two_words();
  std::optional<Words> prefix();
  std::optional<Words> phrase();
  std::optional<Words> chinese(std::size_t shortest, std::size_t longest);
  std::string some_letters();
  std::string some_characters();

  const std::string store_file_;
  const std::size_t of_each_class_;
  const SampledTexts texts_;
  Random random_;
  std::vector<SearchQuery> queries_;
};

std::vector<SearchQuery> Sampler::sample() {
  if (!texts_.words().empty()) {
    add_drawn(QueryClass::kFrequent, [this] { return word(); });
    add_rare();
    add_drawn(QueryClass::kTwoWords, [this] { return two_words(); });
    add_drawn(QueryClass::kPrefix, [this] { return prefix(); });
    add_drawn(QueryClass::kPhrase, [this] { return phrase(); });
    add_filtered();
  }
  if (!texts_.chinese().empty()) {
    add_drawn(QueryClass::kChinese, [this] { return chinese(2, 4); });
    add_drawn(QueryClass::kCharacter, [this] { return chinese(1, 1); });
  }
  add_absent();
  add_single_letters();
  for (std::size_t i = queries_.size(); i > 1; --i) {
    std::swap(queries_[i - 1], queries_[random_.below(i)]);
  }
  return std::move(queries_);
}

std::optional<Sampler::Words> Sampler::word() {
  const WordPlace& place = random_.one_of(texts_.words());
  return Words{std::string(place.message->parts.words[place.number])};
}

std::optional<Sampler::Words> Sampler::two_words() {
  const auto& words = random_.one_of(texts_.words()).message->parts.words;
  const std::string_view first = random_.one_of(words);
  const std::string_view second = random_.one_of(words);
  if (first.data() == second.data()) return std::nullopt;
  return Words{std::string(first), std::string(second)};
}

std::optional<Sampler::Words> Sampler::prefix() {
  std::string word = this->word()->front();
  const std::size_t letters = 2 + random_.below(4);
  if (word.size() <= letters) return std::nullopt;
  word.resize(letters);
  return Words{word};
}

std::optional<Sampler::Words> Sampler::phrase() {
  const WordPlace& place = random_.one_of(texts_.words());
  const auto& words = place.message->parts.words;
  Words phrase{std::string(words[place.number])};
  for (std::size_t left = 1 + random_.below(2), i = place.number + 1; left > 0; --left, ++i) {
    if (i == words.size() || !are_neighbours(words[i - 1], words[i])) return std::nullopt;
    phrase.emplace_back(words[i]);
  }
  return phrase;
}

std::optional<Sampler::Words> Sampler::chinese(std::size_t shortest, std::size_t longest) {
  const WordPlace& place = random_.one_of(texts_.chinese());
  const auto& run = place.message->parts.chinese[place.number];
  const std::size_t characters = shortest + random_.below(longest - shortest + 1);
  if (run.size() < characters) return std::nullopt;
  const std::size_t begin = random_.below(run.size() - characters + 1);
  return Words{std::string(part_of_run(run, begin, characters))};
}

void Sampler::add_rare() {
  const std::vector<std::string> vocabulary = texts_.vocabulary();
  add_drawn(QueryClass::kRare,
            [&]() -> std::optional<Words> { return Words{random_.one_of(vocabulary)}; });
}

std::string Sampler::some_letters() {
  std::string word;
  for (std::size_t left = 4 + random_.below(6); left > 0; --left) word += random_.one_of(kLetters);
  return word;
}

// Two or three characters, each as frequent as in the texts.
std::string Sampler::some_characters() {
  std::string word;
  for (std::size_t left = 2 + random_.below(2); left > 0; --left) word += chinese(1, 1)->front();
  return word;
}

Sampler::Words Sampler::absent_candidates() {
  Words candidates;
  for (std::size_t i = 0; i < 4 * of_each_class_; ++i) {
    const bool is_chinese = !texts_.chinese().empty() && i % 2 == 0;
    candidates.push_back(is_chinese ? some_characters() : some_letters());
  }
  return candidates;
}

void Sampler::add_absent() {
  const Words words = absent(store_file_, absent_candidates());
  if (words.empty()) return;
  add_drawn(QueryClass::kAbsent,
            [&]() -> std::optional<Words> { return Words{random_.one_of(words)}; });
}

void Sampler::add_single_letters() {
  for (std::size_t i = 0; i < of_each_class_; ++i) {
    add(QueryClass::kSingleLetter, {std::string(1, kLetters[i % kLetters.size()])});
  }
}

void Sampler::add_filtered() {
  std::set<std::pair<std::string, std::string_view>> drawn;
  for (std::size_t i = 0; i < kTriesPerQuery * of_each_class_; ++i) {
    if (drawn.size() == of_each_class_) return;
    const WordPlace& place = random_.one_of(texts_.words());
    const std::string_view word = place.message->parts.words[place.number];
    if (!drawn.emplace(place.message->session_id, word).second) continue;
    add(QueryClass::kFiltered, {std::string(word)});
    queries_.back().session_id = place.message->session_id;
    queries_.back().session_type = place.message->session_type;
  }
}

}  // namespace

std::vector<SearchQuery> sample_queries(const std::string& store_file, std::size_t of_each_class) {
  return Sampler(store_file, of_each_class).sample();
}

}  // namespace corvan_bench

// Runs the fuzz target without libFuzzer: each seed of the corpus, then
// random corruptions of them (bytes flipped, set to edge values, cut,
// lengthened, spliced), from a fixed seed, until the time is up.
// Usage: fuzz_inputs CORPUS-FOLDER-OR-FILE SECONDS
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Input = std::vector<uint8_t>;

// A folder of seeds, or one file: an input to run again.
std::vector<Input> LoadCorpus(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) {
    std::ifstream in(path, std::ios::binary);
    return {Input(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())};
  }
  std::vector<Input> corpus;
  for (const auto& entry : std::filesystem::directory_iterator(path))
    corpus.push_back(LoadCorpus(entry.path()).front());
  return corpus;
}

void Corrupt(Input* input, const std::vector<Input>& corpus, std::mt19937_64& rng) {
  static const uint8_t kEdges[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, 0xFE};
  const int changes = 1 + static_cast<int>(rng() % 8);
  for (int c = 0; c < changes; ++c) {
    // The first byte picks the reader and stays.
    const size_t size = input->size();
    const size_t at = size > 1 ? 1 + rng() % (size - 1) : 0;
    switch (rng() % 6) {
      case 0:
        if (size > 1) (*input)[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
        break;
      case 1:
        if (size > 1) (*input)[at] = kEdges[rng() % sizeof kEdges];
        break;
      case 2:
        if (size > 1) input->resize(at);
        break;
      case 3:
        input->insert(input->end(), rng() % 64, static_cast<uint8_t>(rng()));
        break;
      case 4:
        if (size > 9) {
          const uint64_t value = rng() % 2 ? ~uint64_t{0} << (rng() % 64) : rng();
          const size_t where = 1 + rng() % (size - 9);
          for (int b = 0; b < 8; ++b) (*input)[where + b] = static_cast<uint8_t>(value >> (8 * b));
        }
        break;
      default: {
        const Input& other = corpus[rng() % corpus.size()];
        if (other.size() > 1 && size > 1) {
          const size_t from = 1 + rng() % (other.size() - 1);
          const size_t n = std::min(other.size() - from, size - at);
          std::copy_n(other.begin() + static_cast<ptrdiff_t>(from), n,
                      input->begin() + static_cast<ptrdiff_t>(at));
        }
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s CORPUS SECONDS\n", argv[0]);
    return 2;
  }
  const std::vector<Input> corpus = LoadCorpus(argv[1]);
  if (corpus.empty()) return 2;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
  for (const Input& seed : corpus) LLVMFuzzerTestOneInput(seed.data(), seed.size());
  std::mt19937_64 rng(20);
  uint64_t runs = corpus.size();
  while (std::chrono::steady_clock::now() < end) {
    Input input = corpus[rng() % corpus.size()];
    Corrupt(&input, corpus, rng);
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++runs;
  }
  std::printf("fuzz: %llu inputs, no failure\n", static_cast<unsigned long long>(runs));
  return 0;
}

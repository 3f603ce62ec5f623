// Creates broken variants of well-formed input and runs the code under test with them:
//
//     fuzz_tests SEEDS [VARIANTS]
//
// takes the folder of the well-formed seeds, and the number of variants of each kind of input (default 10,000). The
// build's tests run 1,000 to save time (BREVANT_VARIANTS of CMake); run all of them for a release. Kinds whose variants
// open a hundred files each run a quarter of that.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

/// The seed of instruction files, which uses every key: the sample.
inline constexpr char kInstructionSeed[] = "../../../samples/update/QorPaFrwk.ini";

/// The share of variants for a kind in which each of them opens a hundred files.
inline constexpr std::size_t kSlow = 4;

/// The bytes of a file in "seeds".
[[nodiscard]] std::string Seed(const std::string& strName);

/// Writes a file and the folders above it, with a unique, old time: the system uses its cached copy of a file only if
/// that cannot be newer.
void PutVariant(const std::filesystem::path& path, const std::string& strVariant);

/// Runs `attempt` with the seeds and then with their variants, which are the same on every run: bytes flipped, pieces
/// cut, doubled, repeated, exchanged and mixed with dangerous words, the whole in UTF-16. Checks the heap throughout. A
/// variant that crashes or takes longer than 20 seconds ends the process, one that fails a check ends the run; both are
/// saved in "fuzz-input.bin" in the current folder. One in `uShare` of the requested variants is run.
void RunVariants(const std::vector<std::string>& seeds,
                 const std::function<void(const std::string& strVariant)>& attempt, std::size_t uShare = 1);

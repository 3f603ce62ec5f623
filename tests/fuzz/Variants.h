// Broken variants of well-formed input, and the runner that puts them through the code under test:
//
//     fuzz_tests SEEDS [VARIANTS]
//
// takes the folder of the well-formed seeds, and how many variants of each kind of input are run, instead of 10,000.
// The build's tests run 2,000, which is what fits into their time; a release is worth the whole number.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

/// The seed of instruction files, which uses every key: the sample.
inline constexpr char kInstructionSeed[] = "../../../samples/update/QorPaFrwk.ini";

/// The bytes of a file in "seeds".
[[nodiscard]] std::string Seed(const std::string& strName);

/// Writes a file, and the folders above it, with a time of its own, and an old one: the system trusts its copy of a
/// file only when that cannot be newer.
void PutVariant(const std::filesystem::path& path, const std::string& strVariant);

/// Runs `attempt` with the seeds as they are and then with their variants, the same ones on every run: bytes flipped,
/// pieces cut, doubled, repeated, exchanged and mixed with dangerous words, the whole in UTF-16. The heap is checked
/// all along. A variant that crashes or takes longer than 20 seconds ends the process, one that fails a check ends the
/// run; either is left in the file "fuzz-input.bin" of the current folder.
void RunVariants(const std::vector<std::string>& seeds,
                 const std::function<void(const std::string& strVariant)>& attempt);

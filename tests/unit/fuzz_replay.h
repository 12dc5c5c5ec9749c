// Replays a fuzz target's inputs in the unit suite, as tests fuzz_replay_<target>.corpus and
// .regressions: the committed corpus and the inputs that once failed (tests/fuzz/corpus/<target>,
// tests/fuzz/regressions/<target>) go through the target's own entry point, checks and all.
// tests/CMakeLists.txt makes one program a target, which defines FUZZ_TARGET (its name, a
// string) and FUZZ_SUITE, includes the target's source and then this file.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

// Runs every file of one input directory, in name order; returns how many there were.
static size_t replay_fuzz_inputs(const std::string &directory) {
    static int initialised = LLVMFuzzerInitialize(nullptr, nullptr);   // once, before the first input
    (void)initialised;
    std::vector<std::filesystem::path> files;
    std::filesystem::path dir = std::filesystem::path(FENTRA_SOURCE_DIR) / "tests/fuzz" / directory / FUZZ_TARGET;
    if (std::filesystem::is_directory(dir))
        for (const auto &entry : std::filesystem::directory_iterator(dir)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path &file : files) {
        std::ifstream in(file, std::ios::binary);
        std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        try {
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        } catch (const std::exception &e) {
            ADD_FAILURE() << directory << "/" << FUZZ_TARGET << "/" << file.filename().string() << ":\n" << e.what();
        }
    }
    return files.size();
}

// The committed corpus must be there; regressions only for targets that have had failures.
TEST(FUZZ_SUITE, corpus) { EXPECT_GT(replay_fuzz_inputs("corpus"), 0u); }
TEST(FUZZ_SUITE, regressions) { replay_fuzz_inputs("regressions"); }

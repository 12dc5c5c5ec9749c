// Replays a fuzz target's inputs in the unit suite, as tests fuzz_replay_<target>.corpus and
// .regressions: the committed corpus and the inputs that once failed (tests/fuzz/corpus/<target>,
// tests/fuzz/regressions/<target>) go through the target's own entry point, checks and all.
// tests/CMakeLists.txt makes one program a target, which defines FUZZ_TARGET (its name, a
// string) and FUZZ_SUITE, includes the target's source (and with it fuzz_input.h) and then this file.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

// Runs every file of one input directory, in name order; returns how many there were.
static size_t replay_fuzz_inputs(const std::string &directory) {
    [[maybe_unused]] static int initialised = LLVMFuzzerInitialize(nullptr, nullptr);   // once, before the first input
    std::vector<std::filesystem::path> files;
    std::error_code missing;   // a target without regressions has no directory: no files
    std::filesystem::path dir = std::filesystem::path(FENTRA_SOURCE_DIR) / "tests/fuzz" / directory / FUZZ_TARGET;
    for (const auto &entry : std::filesystem::directory_iterator(dir, missing)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path &file : files) {
        std::string bytes = fuzz_read_file(file.c_str());
        try {
            LLVMFuzzerTestOneInput((const uint8_t *)bytes.data(), bytes.size());
        } catch (const std::exception &e) {
            ADD_FAILURE() << directory << "/" << FUZZ_TARGET << "/" << file.filename().string() << ":\n" << e.what();
        }
    }
    return files.size();
}

// The committed corpus must be there; regressions only for targets that have had failures.
TEST(FUZZ_SUITE, corpus) { EXPECT_GT(replay_fuzz_inputs("corpus"), 0u); }
TEST(FUZZ_SUITE, regressions) { replay_fuzz_inputs("regressions"); }

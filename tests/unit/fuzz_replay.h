// Replays a fuzz target's inputs in the unit suite: the committed corpus and the inputs that
// once failed (tests/fuzz/corpus/<target>, tests/fuzz/regressions/<target>) go through the
// target's own entry point, checks and all. Include after the target's source, built with
// FUZZ_REPLAY so that a failed check throws and names its input here. Every target defines
// LLVMFuzzerInitialize, which is called once before the first input.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Every file of one input directory, in name order (none when it does not exist).
inline std::vector<std::filesystem::path> fuzz_inputs(const std::string &directory) {
    std::vector<std::filesystem::path> files;
    std::filesystem::path dir = std::filesystem::path(FENTRA_SOURCE_DIR) / "tests/fuzz" / directory;
    if (std::filesystem::is_directory(dir))
        for (const auto &entry : std::filesystem::directory_iterator(dir))
            if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

// The target's one-time set-up, done before the first input.
inline void fuzz_replay_initialise() {
    static bool initialised = false;
    if (!initialised) LLVMFuzzerInitialize(nullptr, nullptr);
    initialised = true;
}

// Runs every input of a directory; returns how many there were.
inline size_t replay_fuzz_inputs(const std::string &directory) {
    fuzz_replay_initialise();
    std::vector<std::filesystem::path> files = fuzz_inputs(directory);
    for (const std::filesystem::path &file : files) {
        std::ifstream in(file, std::ios::binary);
        std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        try {
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        } catch (const std::exception &e) {
            ADD_FAILURE() << directory << "/" << file.filename().string() << ":\n" << e.what();
        }
    }
    return files.size();
}

// The committed corpus must be there; regressions only for targets that have had failures.
#define FUZZ_REPLAY_TESTS(target)                                                       \
    TEST(fuzz_replay, corpus) { EXPECT_GT(replay_fuzz_inputs("corpus/" target), 0u); } \
    TEST(fuzz_replay, regressions) { replay_fuzz_inputs("regressions/" target); }

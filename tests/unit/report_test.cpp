// Diagnostics: the default output's console forms and log files, questions, progress,
// console colours and the calendar helpers. (The report stack is checked against a
// model of it by the fuzz target report, replayed in the suite.)
#include "Morvane/report.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> boxes;
void recording_box(const char *caption, const char *text) { boxes.push_back(std::string(caption) + "|" + text); }

long lines_in(const char *path)
{
    std::ifstream in(path);
    return std::count(std::istreambuf_iterator<char>(in), {}, '\n');
}

} // namespace

// Progress figures on the console; full screen, a warning only goes to warnings.log; windowed,
// to a box and graphics_error.log, or in console mode to the console; questions take a word
// starting with y or Y as yes.
TEST(report_output, progress_warnings_boxes_and_questions)
{
    std::string previous = std::filesystem::current_path(), dir = "/tmp/report_test_" + std::to_string(getpid());
    std::filesystem::create_directory(dir);
    std::filesystem::current_path(dir);
    report_handler = report_output;
    windowed = 0, warnings_log_enabled = 1, console_mode = 0;
    const std::pair<double, double> progress[] = {{0, 10}, {3, 0}, {0, 0}, {2.5, 4}, {-2, 0}};
    testing::internal::CaptureStdout();
    for (const auto &[value, total] : progress) {
        report_inner("fentra", 1, REPORT_MESSAGE, "Tracking", 0);
        progress_set2(value, total);
    }
    report_inner("fentra", 1, REPORT_WARNING, "Beam lost", 0);
    windowed = 1, report_message_box = recording_box;
    report_inner("fentra", 1, REPORT_WARNING, "boxed", 0);
    console_mode = 1;
    report_inner("fentra", 2, REPORT_WARNING, "on console", 0);
    console_mode = 0, windowed = 0;
    const std::pair<const char *, int> answers[] = {
        {"Yes\n", 1}, {"  yes please\n", 1}, {"n\n", 0}, {"", 0}, {"Ja\n", 0}};
    for (const auto &[input, answer] : answers) {
        FILE *f = fopen("answer.txt", "w");
        fputs(input, f);
        fclose(f);
        ASSERT_NE(freopen("answer.txt", "r", stdin), nullptr);
        EXPECT_EQ(report_inner("fentra", 1, REPORT_QUESTION, "Keep?", 0), answer) << input;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Tracking\nTracking [0/10]\nTracking\nTracking [3]\nTracking\nTracking\nTracking\nTracking [2.5/4]\n"
              "Tracking\nTracking\n\n[WARNING] on console\nPress any key to continue program\n"
              "Keep? (Y/N) Keep? (Y/N) Keep? (Y/N) Keep? (Y/N) Keep? (Y/N) ");
    EXPECT_EQ(boxes, std::vector<std::string>{"Errr|boxed"});
    EXPECT_EQ(std::make_tuple(lines_in("warnings.log"), lines_in("graphics_error.log")), std::make_tuple(3L, 1L));
    EXPECT_NE(freopen("/dev/null", "r", stdin), nullptr);
    report_message_box = nullptr;   // the box's caption and text then go to standard error
    EXPECT_EXIT(graphics_fatal("no pixel format"), testing::ExitedWithCode(1), "^Oh sod it: no pixel format\n$");
    std::filesystem::current_path(previous);
    std::filesystem::remove_all(dir);
}

// ---- Console and calendar ------------------------------------------------------------------

TEST(report_console, colour_attributes_map_to_ansi_sequences)
{
    const std::pair<int, const char *> cases[] = {
        {0x07, "\x1b[0;37;40m"}, {0x0C, "\x1b[0;91;40m"}, {0x1E, "\x1b[0;93;44m"}, {0xF0, "\x1b[0;30;107m"},
        {0x53, "\x1b[0;36;45m"}};
    for (const auto &[attribute, sequence] : cases) {
        char out[32];
        console_colour_sequence(attribute, out, sizeof out);
        EXPECT_STREQ(out, sequence) << "attribute " << attribute;
    }
}

TEST(report_calendar, dates_weekdays_and_pictures)
{
    struct { double seconds; int year, month, day, weekday, hour, minute; const char *h; } cases[] = {
        {0, 1970, 1, 1, 4, 0, 0, "12:00 AM"},
        {-11644473600.0, 1601, 1, 1, 1, 0, 0, "12:00 AM"},
        {951868799.25, 2000, 2, 29, 2, 23, 59, "11:59 PM"},
        {1425489573.5, 2015, 3, 4, 3, 17, 19, "5:19 PM"},
        {4107585600, 2100, 3, 1, 1, 12, 0, "12:00 PM"},   // 2100 has no 29 February
    };
    setenv("LC_ALL", "C", 1);
    char out[100];
    for (const auto &c : cases) {
        unsigned high, low;
        time_to_filetime(c.seconds, &high, &low);
        calendar_time t = filetime_to_calendar(high, low);
        EXPECT_EQ(std::make_tuple(t.year, t.month, t.day, t.day_of_week, t.hour, t.minute),
                  std::make_tuple(c.year, c.month, c.day, c.weekday, c.hour, c.minute)) << c.seconds;
        format_time(&t, "h:mm tt", out, sizeof out);
        EXPECT_STREQ(out, c.h) << c.seconds;
        if (c.year != 2015) continue;
        EXPECT_EQ(format_date(&t, "dddd d MMMM yyyy, ddd', the 'd/M/yy", out, sizeof out), 39);
        EXPECT_STREQ(out, "Wednesday 4 March 2015, Wed, the 4/3/15");
    }
    // The log's stamp: year, the month's short name, day, then the clock.
    char stamp[202];
    report_time_stamp(stamp);
    int year, day, hour, minute, second, length = 0;
    char month[4] = "";
    EXPECT_EQ(sscanf(stamp, "%4d-%3[A-Za-z]-%2d %2d:%2d:%2d%n", &year, month, &day, &hour, &minute, &second, &length), 6);
    EXPECT_EQ(length, 20) << stamp;
    EXPECT_NE(std::string("JanFebMarAprMayJunJulAugSepOctNovDec").find(month), std::string::npos) << stamp;
    EXPECT_EQ(strlen(month), 3u) << stamp;
}

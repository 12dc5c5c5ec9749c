// Diagnostics: the report stack, owned copies, the default output's console forms and log
// files, questions, progress, fatal exits, console colours and the calendar helpers. (Random
// sequences of operations are checked against a model by the fuzz target report, replayed in
// the suite.)
#include "Morvane/clock.h"
#include "Morvane/report.h"

#include <gtest/gtest.h>

#include <regex.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

// ---- Helpers ---------------------------------------------------------------------------------

// What the recording handler was handed, with the stack depth while it ran.
struct seen_record {
    int type;
    std::string message;
    double time;
    unsigned depth;
};
std::vector<seen_record> seen;

int recording_handler(report_record *r)
{
    seen.push_back({r->type, r->message ? r->message : "", r->time, report_stack_depth()});
    return 1;
}

// Installs a handler and the full-screen defaults for one test, restoring them afterwards.
struct report_settings {
    int (*saved_handler)(report_record *);
    unsigned char saved_windowed;
    int saved_log, saved_console;
    explicit report_settings(int (*handler)(report_record *))
        : saved_handler(report_handler), saved_windowed(windowed),
          saved_log(warnings_log_enabled), saved_console(console_mode)
    {
        report_handler = handler;
        windowed = 0;
        warnings_log_enabled = 1;
        console_mode = 0;
        seen.clear();
    }
    ~report_settings()
    {
        report_handler = saved_handler;
        windowed = saved_windowed;
        warnings_log_enabled = saved_log;
        console_mode = saved_console;
        report_message_box = nullptr;
        report_graphics_close = nullptr;
    }
};

// Redirects standard output into a temporary file until text() is called.
struct stdout_capture {
    FILE *file = tmpfile();
    int saved;
    stdout_capture() { fflush(stdout), saved = dup(1), dup2(fileno(file), 1); }
    std::string text()
    {
        fflush(stdout), dup2(saved, 1), close(saved), rewind(file);
        std::string out;
        for (int c; (c = fgetc(file)) != EOF;) out += (char)c;
        fclose(file);
        file = nullptr;
        return out;
    }
    ~stdout_capture()
    {
        if (file) text();
    }
};

// Runs a test inside a fresh temporary directory, so log files start absent.
struct temp_dir {
    std::string path, previous = std::filesystem::current_path();
    temp_dir()
    {
        char name[] = "/tmp/report_test_XXXXXX";
        path = mkdtemp(name);
        std::filesystem::current_path(path);
    }
    ~temp_dir()
    {
        std::filesystem::current_path(previous);
        std::filesystem::remove_all(path);
    }
};

std::vector<std::string> lines_of_file(const char *path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Sets an environment variable for one scope.
struct scoped_env {
    std::string name, old;
    bool had;
    scoped_env(const char *n, const char *value) : name(n), had(getenv(n) != nullptr)
    {
        if (had) old = getenv(n);
        setenv(n, value, 1);
    }
    ~scoped_env() { had ? setenv(name.c_str(), old.c_str(), 1) : unsetenv(name.c_str()); }
};

// A log line: the "yyyy-MMM-dd HH:mm:ss" stamp, a blank, then the message.
bool stamped(const std::string &line, const char *message)
{
    regex_t re;
    regcomp(&re, "^[0-9]{4}-[A-Z][a-z]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} (.*)$", REG_EXTENDED);
    regmatch_t m[2];
    bool ok = regexec(&re, line.c_str(), 2, m, 0) == 0 && line.substr(m[1].rm_so) == message;
    regfree(&re);
    return ok;
}

} // namespace

// ---- The record stack ------------------------------------------------------------------------

TEST(report_stack, blocks_questions_and_copies)
{
    temp_dir dir;
    report_settings settings(report_output);
    warnings_log_enabled = 0;
    stdout_capture out;
    report_inner("fentra", 10, REPORT_BEGIN, "Loading lattice", 0);
    unsigned in_block = report_stack_depth();
    report_inner("fentra", 11, REPORT_WARNING, "odd element", 0);
    report_inner("fentra", 12, REPORT_END, nullptr, 0);
    EXPECT_EQ(out.text(), "Loading lattice\nLoading lattice\n") << "a block prints at its start and end";
    EXPECT_EQ(std::make_tuple(in_block, report_stack_depth()), std::make_tuple(2u, 1u));
    EXPECT_EQ(report_stack_record(1), nullptr);

    // A question and a warning are pushed while the handler runs; a copied message outlives the
    // caller's buffer, and a warning releases the copy of the record it replaces.
    report_handler = recording_handler;
    report_inner("fentra", 1, REPORT_QUESTION, "sure?", 0);
    report_inner("fentra", 2, REPORT_WARNING, "warned", 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(std::make_tuple(seen[0].depth, seen[1].depth), std::make_tuple(2u, 2u));
    char buffer[32];
    strcpy(buffer, "Beam of 10000 particles");
    report_inner("beam", 1, REPORT_BEGIN, buffer, 1);
    strcpy(buffer, "XXXXXXXXXXXXXXXXXXXXXXX");
    report_inner("beam", 2, REPORT_END, nullptr, 0);
    EXPECT_EQ(seen.back().message, "Beam of 10000 particles");
    report_inner("fentra", 3, REPORT_MESSAGE, "copied", 1);
    report_inner("fentra", 4, REPORT_WARNING, "warned", 1);
    EXPECT_TRUE(report_stack_record(0)->message == nullptr && report_stack_record(0)->owned == 0);
    report_inner("fentra", 5, REPORT_MESSAGE, "next", 1);   // no double free (the sanitizer run)
    EXPECT_STREQ(report_stack_record(0)->message, "next");
}

std::vector<std::string> boxes;
void recording_box(const char *caption, const char *text) { boxes.push_back(std::string(caption) + "|" + text); }

TEST(report_output, progress_warnings_boxes_and_questions)
{
    temp_dir dir;
    report_settings settings(report_output);
    struct { double value, total; const char *suffix; } progress[] = {
        {0, 10, " [0/10]"}, {3, 0, " [3]"}, {0, 0, ""}, {2.5, 4, " [2.5/4]"}, {-2, 0, ""}};
    for (const auto &c : progress) {
        stdout_capture out;
        report_inner("fentra", 1, REPORT_MESSAGE, "Tracking", 0);
        progress_set2(c.value, c.total);
        EXPECT_EQ(out.text(), std::string("Tracking\nTracking") + c.suffix + "\n");
    }
    {
        stdout_capture out;
        report_inner("fentra", 1, REPORT_WARNING, "Beam lost", 0);
        EXPECT_EQ(out.text(), "") << "full screen: nothing on the console";
    }
    std::vector<std::string> lines = lines_of_file("warnings.log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(stamped(lines[0], "Beam lost")) << lines[0];

    windowed = 1;
    report_message_box = recording_box;
    boxes.clear();
    report_inner("fentra", 1, REPORT_WARNING, "boxed", 0);
    EXPECT_EQ(boxes, std::vector<std::string>{"Errr|boxed"});
    EXPECT_EQ(lines_of_file("graphics_error.log").size(), 1u);
    console_mode = 1;
    {
        stdout_capture out;
        report_inner("fentra", 2, REPORT_WARNING, "on console", 0);
        EXPECT_EQ(out.text(), "\n[WARNING] on console\nPress any key to continue program\n");
    }
    console_mode = 0;
    windowed = 0;
    struct { const char *input; int answer; } answers[] = {
        {"Yes\n", 1}, {"  YES  \n", 1}, {"yes please\n", 1}, {"n\n", 0}, {"", 0}, {"Ja\n", 0}, {"\n\n", 0}};
    for (const auto &c : answers) {
        FILE *f = fopen("answer.txt", "w");
        fputs(c.input, f);
        fclose(f);
        ASSERT_NE(freopen("answer.txt", "r", stdin), nullptr);
        stdout_capture out;
        EXPECT_EQ(report_inner("fentra", 1, REPORT_QUESTION, "Keep the beam?", 0), c.answer) << c.input;
        EXPECT_EQ(out.text(), "Keep the beam? (Y/N) ");
    }
    EXPECT_NE(freopen("/dev/null", "r", stdin), nullptr);
}

int stderr_handler(report_record *r)
{
    fprintf(stderr, "<%d|%s|%d|%s>\n", r->type, r->source, r->line, r->message);
    return 1;
}

TEST(report_fatal, misuse_and_fatal_errors_exit_with_status_one)
{
    report_settings settings(stderr_handler);
    EXPECT_EXIT(report_inner("fentra", 5, REPORT_END, nullptr, 0), testing::ExitedWithCode(1),
                "<5\\|Morvane/report\\|92\\|Trying to pop empty stack in report_inner>");
    EXPECT_EXIT(report_inner("fentra", 5, 8, "x", 0), testing::ExitedWithCode(1),
                "<5\\|Morvane/report\\|126\\|Unknown ReportType in report_inner>");
    temp_dir dir;
    report_handler = report_output;
    EXPECT_EXIT(
        {
            dup2(2, 1);   // the console form goes to standard output; show it to the death test
            fatal_error("fentra", 391, "no resolution specified", 0);
        },
        testing::ExitedWithCode(1), "^\n\\[FATAL ERROR\\] no resolution specified\n$");
}

// ---- Console and calendar ------------------------------------------------------------------

TEST(report_console, colour_attributes_map_to_ansi_sequences)
{
    struct { int attribute; const char *sequence; } cases[] = {
        {0x07, "\x1b[0;37;40m"}, {0x06, "\x1b[0;33;40m"}, {0x0C, "\x1b[0;91;40m"},
        {0x1E, "\x1b[0;93;44m"}, {0xF0, "\x1b[0;30;107m"}, {0x53, "\x1b[0;36;45m"},
    };
    for (const auto &c : cases) {
        char out[32];
        console_colour_sequence(c.attribute, out, sizeof out);
        EXPECT_STREQ(out, c.sequence) << "attribute " << c.attribute;
    }
    stdout_capture out;
    console_goto(5, 3);
    console_clear_line();
    EXPECT_EQ(out.text(), "\x1b[3;5H\x1b[K");
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
    scoped_env locale("LC_ALL", "C");
    for (const auto &c : cases) {
        unsigned high, low;
        time_to_filetime(c.seconds, &high, &low);
        calendar_time t = filetime_to_calendar(high, low);
        EXPECT_EQ(std::make_tuple(t.year, t.month, t.day, t.day_of_week, t.hour, t.minute),
                  std::make_tuple(c.year, c.month, c.day, c.weekday, c.hour, c.minute)) << c.seconds;
        char out[100];
        format_time(&t, "h:mm tt", out, sizeof out);
        EXPECT_STREQ(out, c.h) << c.seconds;
    }
    unsigned high, low;
    time_to_filetime(1425489573, &high, &low);   // 2015-03-04 17:19:33, a Wednesday
    calendar_time t = filetime_to_calendar(high, low);
    char out[100];
    EXPECT_EQ(format_date(&t, "dddd d MMMM yyyy, ddd', the 'd/M/yy", out, sizeof out), 39);
    EXPECT_STREQ(out, "Wednesday 4 March 2015, Wed, the 4/3/15");
    format_time(&t, "HH:mm:ss H'h'm", out, sizeof out);
    EXPECT_STREQ(out, "17:19:33 17h19");
}

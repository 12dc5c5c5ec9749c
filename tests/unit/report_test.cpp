// Diagnostics: the report stack (BEGIN/END nesting, warnings, owned copies), the default
// output's console forms and log files, questions, progress, fatal exits and the calendar
// helpers. (What the handler is handed for every operation, nesting and progress included,
// and a stack capacity never below its depth are checked against a model by the fuzz target
// report, replayed in the suite; the stack grows as growarray_test checks.)
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

bool file_exists(const char *path) { return access(path, F_OK) == 0; }

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

double fixed_clock() { return 1234.5; }

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

TEST(report_stack, begin_warning_end_leaves_the_bottom_record_and_prints_the_block_twice)
{
    temp_dir dir;
    report_settings settings(report_output);
    warnings_log_enabled = 0;
    stdout_capture out;
    report_inner("fentra", 10, REPORT_BEGIN, "Loading lattice", 0);
    unsigned in_block = report_stack_depth();
    report_inner("fentra", 11, REPORT_WARNING, "odd element", 0);
    unsigned after_warning = report_stack_depth();
    report_inner("fentra", 12, REPORT_END, nullptr, 0);
    std::string text = out.text();
    EXPECT_EQ(std::make_tuple(in_block, after_warning, report_stack_depth()), std::make_tuple(2u, 2u, 1u));
    EXPECT_EQ(text, "Loading lattice\nLoading lattice\n");
    const report_record *bottom = report_stack_record(0);
    ASSERT_NE(bottom, nullptr);
    EXPECT_TRUE(bottom->type == 0 && bottom->message == nullptr && bottom->source == nullptr);
    EXPECT_EQ(report_stack_record(1), nullptr);
}

TEST(report_stack, messages_overwrite_the_top_record_with_source_thread_and_time)
{
    report_settings settings(recording_handler);
    double (*saved_clock)() = time_now;
    time_now = fixed_clock;
    report_inner("fentra", 100, REPORT_MESSAGE, "one", 0);
    report_inner("lattice", 200, REPORT_MESSAGE, "two", 0);
    time_now = saved_clock;
    EXPECT_EQ(report_stack_depth(), 1u);
    const report_record *top = report_stack_record(0);
    EXPECT_EQ(std::make_tuple(std::string(top->message), std::string(top->source), top->line, top->type),
              std::make_tuple(std::string("two"), std::string("lattice"), 200, (int)REPORT_MESSAGE));
    EXPECT_EQ(std::make_tuple(top->thread, top->time, top->value, top->total),
              std::make_tuple((unsigned)gettid(), 1234.5, 0.0, 0.0));
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].message, "one");
    EXPECT_EQ(seen[0].time, 1234.5);
}

TEST(report_stack, a_missing_handler_silences_output_but_keeps_the_stack)
{
    temp_dir dir;
    report_settings settings(nullptr);
    stdout_capture out;
    report_inner("fentra", 1, REPORT_BEGIN, "quiet", 0);
    report_inner("fentra", 2, REPORT_WARNING, "quiet warning", 0);
    EXPECT_EQ(report_inner("fentra", 3, REPORT_QUESTION, "quiet question", 0), 0);
    EXPECT_EQ(report_stack_depth(), 2u);
    report_inner("fentra", 4, REPORT_END, nullptr, 0);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(report_stack_depth(), 1u);
    EXPECT_FALSE(file_exists("warnings.log"));
}

// ---- Owned copies --------------------------------------------------------------------------------

TEST(report_copies, a_copied_message_survives_the_callers_buffer)
{
    report_settings settings(recording_handler);
    char buffer[64];
    strcpy(buffer, "Beam of 10000 particles");
    report_inner("beam", 1, REPORT_BEGIN, buffer, 1);
    strcpy(buffer, "XXXXXXXXXXXXXXXXXXXXXXX");
    EXPECT_STREQ(report_stack_record(0)->message, "Beam of 10000 particles");
    EXPECT_EQ(report_stack_record(0)->owned, 1);
    EXPECT_NE(report_stack_record(0)->message, buffer);
    report_inner("beam", 2, REPORT_END, nullptr, 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].type, REPORT_END);
    EXPECT_EQ(seen[1].message, "Beam of 10000 particles");

    // Without the copy flag the record points at the caller's text.
    report_inner("beam", 3, REPORT_MESSAGE, buffer, 0);
    EXPECT_EQ(report_stack_record(0)->message, buffer);
    EXPECT_EQ(report_stack_record(0)->owned, 0);
}

TEST(report_copies, a_warning_releases_the_current_records_copy_and_forgets_it)
{
    report_settings settings(recording_handler);
    report_inner("fentra", 1, REPORT_MESSAGE, "copied text", 1);
    ASSERT_EQ(report_stack_record(0)->owned, 1);
    char warning[32];
    strcpy(warning, "warned");
    report_inner("fentra", 2, REPORT_WARNING, warning, 1);
    EXPECT_EQ(report_stack_depth(), 1u);
    EXPECT_TRUE(report_stack_record(0)->message == nullptr && report_stack_record(0)->owned == 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(std::make_tuple(seen[1].message, seen[1].depth), std::make_tuple(std::string("warned"), 2u));
    // Overwriting the released record later must not free it again (ASan would see it).
    report_inner("fentra", 3, REPORT_MESSAGE, "next", 1);
    EXPECT_STREQ(report_stack_record(0)->message, "next");
}

TEST(report_copies, long_mixed_sequences_keep_the_stack_consistent)
{
    for (auto handler : {(int (*)(report_record *))nullptr, recording_handler}) {
        report_settings settings(handler);
        unsigned depth = 1, seed = 7;
        char text[48];
        for (int i = 0; i < 20000; ++i) {
            seed = seed * 1103515245u + 12345u;
            int choice = (int)((seed >> 16) % 4);
            int copy = (int)((seed >> 20) & 1);
            snprintf(text, sizeof text, "message %d", i);
            if (choice == 0 && depth < 50) {
                report_inner("seq", i, REPORT_BEGIN, text, copy);
                ++depth;
            } else if (choice == 1 && depth > 1) {
                report_inner("seq", i, REPORT_END, nullptr, 0);
                --depth;
            } else if (choice == 2) {
                report_inner("seq", i, REPORT_WARNING, text, copy);
            } else {
                report_inner("seq", i, REPORT_MESSAGE, text, copy);
            }
            ASSERT_EQ(report_stack_depth(), depth) << "after step " << i;
            seen.clear();
        }
        while (depth > 1) {
            report_inner("seq", 0, REPORT_END, nullptr, 0);
            --depth;
        }
        EXPECT_EQ(report_stack_depth(), 1u);
        EXPECT_EQ(report_stack_record(0)->message, nullptr);
    }
}

// ---- Progress ------------------------------------------------------------------------------------

TEST(report_progress, suffix_forms_follow_value_and_total)
{
    temp_dir dir;
    report_settings settings(report_output);
    struct {
        double value, total;
        const char *suffix;
    } cases[] = {
        {0, 10, " [0/10]"},
        {3, 0, " [3]"},
        {0, 0, ""},
        {2.5, 4, " [2.5/4]"},
        {1234567, 0, " [1.23457e+06]"},
        {-2, 0, ""}, // a negative value with no total shows nothing
        {-1, 8, " [-1/8]"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.suffix);
        stdout_capture out;
        report_inner("fentra", 1, REPORT_MESSAGE, "Tracking", 0);
        progress_set2(c.value, c.total);
        EXPECT_EQ(out.text(), std::string("Tracking\nTracking") + c.suffix + "\n");
        EXPECT_EQ(report_stack_record(0)->type, REPORT_PROGRESS);
    }
}

// ---- Warnings and logs --------------------------------------------------------------------------

TEST(report_warnings, warnings_log_line_carries_a_local_time_stamp)
{
    temp_dir dir;
    scoped_env locale("LC_ALL", "C");
    // A zone five and a half hours from UTC, so a stamp in UTC would be far off.
    scoped_env zone("TZ", "FTZ-5:30");
    tzset();
    report_settings settings(report_output);
    stdout_capture out;
    time_t before = time(nullptr);
    report_inner("fentra", 1, REPORT_WARNING, "Beam lost at element 12", 0);
    report_inner("fentra", 2, REPORT_WARNING, "second", 1);
    time_t after = time(nullptr);
    EXPECT_EQ(out.text(), ""); // full screen: nothing on the console
    std::vector<std::string> lines = lines_of_file("warnings.log");
    ASSERT_EQ(lines.size(), 2u);
    const char *messages[] = {"Beam lost at element 12", "second"};
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(stamped(lines[i], messages[i])) << lines[i];
        tm t = {};
        ASSERT_NE(strptime(lines[i].c_str(), "%Y-%b-%d %H:%M:%S", &t), nullptr) << lines[i];
        t.tm_isdst = -1;
        time_t at = mktime(&t);   // local time, as the stamp
        EXPECT_GE(at, before - 1) << lines[i];
        EXPECT_LE(at, after + 1) << lines[i];
    }
    EXPECT_EQ(report_stack_depth(), 1u);
    unsetenv("TZ");
    tzset();
}

TEST(report_warnings, disabled_log_in_full_screen_writes_nothing_at_all)
{
    temp_dir dir;
    report_settings settings(report_output);
    warnings_log_enabled = 0;
    stdout_capture out;
    report_inner("fentra", 1, REPORT_WARNING, "not logged", 0);
    EXPECT_EQ(out.text(), "");
    EXPECT_FALSE(file_exists("warnings.log"));
    EXPECT_FALSE(file_exists("graphics_error.log"));
}

std::vector<std::string> boxes;
void recording_box(const char *caption, const char *text) { boxes.push_back(std::string(caption) + "|" + text); }

TEST(report_warnings, framed_window_forms)
{
    temp_dir dir;
    report_settings settings(report_output);
    windowed = 1;
    report_message_box = recording_box;
    boxes.clear();
    {
        stdout_capture out;
        report_inner("fentra", 1, REPORT_WARNING, "boxed", 0);
        EXPECT_EQ(out.text(), "");
    }
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0], "Errr|boxed");
    EXPECT_EQ(lines_of_file("warnings.log").size(), 1u);
    std::vector<std::string> graphics = lines_of_file("graphics_error.log");
    ASSERT_EQ(graphics.size(), 1u);
    EXPECT_TRUE(stamped(graphics[0], "boxed")) << graphics[0];

    console_mode = 1;
    stdout_capture out;
    report_inner("fentra", 2, REPORT_WARNING, "on console", 0);
    EXPECT_EQ(out.text(), "\n[WARNING] on console\nPress any key to continue program\n");
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_EQ(lines_of_file("warnings.log").size(), 2u);
    EXPECT_EQ(lines_of_file("graphics_error.log").size(), 1u);
}

// ---- Questions -----------------------------------------------------------------------------------

TEST(report_questions, answers_read_from_standard_input)
{
    temp_dir dir;
    report_settings settings(report_output);
    struct {
        const char *input;
        int answer;
    } cases[] = {
        {"Yes\n", 1}, {"y\n", 1}, {"  YES  \n", 1}, {"yes please\n", 1}, {"n\n", 0},
        {"", 0},      {"Ja\n", 0}, {"\n\n", 0},      {"ok\n", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string("input \"") + c.input + "\"");
        FILE *f = fopen("answer.txt", "w");
        fputs(c.input, f);
        fclose(f);
        ASSERT_NE(freopen("answer.txt", "r", stdin), nullptr);
        stdout_capture out;
        EXPECT_EQ(report_inner("fentra", 1, REPORT_QUESTION, "Keep the beam?", 0), c.answer);
        EXPECT_EQ(out.text(), "Keep the beam? (Y/N) ");
        EXPECT_EQ(report_stack_depth(), 1u);
    }
    EXPECT_NE(freopen("/dev/null", "r", stdin), nullptr);
}

// ---- Fatal errors --------------------------------------------------------------------------------

int stderr_handler(report_record *r)
{
    fprintf(stderr, "<%d|%s|%d|%s>\n", r->type, r->source, r->line, r->message);
    return 1;
}

TEST(report_fatal, misuse_of_report_inner_exits_with_status_one)
{
    report_settings settings(stderr_handler);
    EXPECT_EXIT(report_inner("fentra", 5, REPORT_END, nullptr, 0), testing::ExitedWithCode(1),
                "<5\\|Morvane/report\\|92\\|Trying to pop empty stack in report_inner>");
    for (int type : {0, 4, 8, -1}) {
        SCOPED_TRACE("type " + std::to_string(type));
        EXPECT_EXIT(report_inner("fentra", 5, type, "x", 0), testing::ExitedWithCode(1),
                    "<5\\|Morvane/report\\|126\\|Unknown ReportType in report_inner>");
    }
    // The fatal report overwrites the top record: the block is not popped first.
    EXPECT_EXIT(
        {
            report_inner("fentra", 7, REPORT_BEGIN, "block", 0);
            report_inner("fentra", 8, REPORT_FATAL, "Out of memory", 1);
        },
        testing::ExitedWithCode(1), "<2\\|fentra\\|7\\|block>\n<5\\|fentra\\|8\\|Out of memory>");
}

TEST(report_fatal, full_screen_prints_and_exits_without_a_box)
{
    temp_dir dir;
    report_settings settings(report_output);
    report_message_box = recording_box;
    EXPECT_EXIT(
        {
            dup2(2, 1); // the console form goes to standard output; show it to the death test
            fatal_error("fentra", 391, "GRAPHICS() macro not called at LOOP start, or no resolution specified", 0);
        },
        testing::ExitedWithCode(1),
        "^\n\\[FATAL ERROR\\] GRAPHICS\\(\\) macro not called at LOOP start, or no resolution specified\n$");
    EXPECT_FALSE(file_exists("graphics_error.log"));
}

void box_to_stderr(const char *caption, const char *text) { fprintf(stderr, "box %s: %s\n", caption, text); }
void close_to_stderr() { fprintf(stderr, "graphics closed\n"); }

TEST(report_fatal, framed_window_logs_shows_a_box_and_releases_graphics)
{
    temp_dir dir;
    report_settings settings(report_output);
    windowed = 1;
    report_message_box = box_to_stderr;
    report_graphics_close = close_to_stderr;
    EXPECT_EXIT(fatal_error("Morvane/gfx_opengl", 250, "Failed to create window", 1),
                testing::ExitedWithCode(1), "^box Oh sod it: Failed to create window\ngraphics closed\n$");
    std::vector<std::string> lines = lines_of_file("graphics_error.log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(stamped(lines[0], "Failed to create window")) << lines[0];
}

// ---- Console -------------------------------------------------------------------------------------

TEST(report_console, colour_attributes_map_to_ansi_sequences)
{
    struct {
        int attribute;
        const char *sequence;
    } cases[] = {
        {0x07, "\x1b[0;37;40m"}, // grey on black
        {0x0F, "\x1b[0;97;40m"}, // white
        {0x04, "\x1b[0;31;40m"}, // red
        {0x02, "\x1b[0;32;40m"}, // green
        {0x01, "\x1b[0;34;40m"}, // blue
        {0x06, "\x1b[0;33;40m"}, // red + green = yellow
        {0x0C, "\x1b[0;91;40m"}, // bright red
        {0x1E, "\x1b[0;93;44m"}, // bright yellow on blue
        {0xF0, "\x1b[0;30;107m"}, // black on bright white
        {0x53, "\x1b[0;36;45m"}, // cyan on magenta
    };
    for (const auto &c : cases) {
        char out[32];
        int n = console_colour_sequence(c.attribute, out, sizeof out);
        EXPECT_STREQ(out, c.sequence) << "attribute " << c.attribute;
        EXPECT_EQ(n, (int)strlen(c.sequence));
    }
    stdout_capture out;
    console_goto(5, 3);
    console_clear_line();
    console_colour(0x0E);
    EXPECT_EQ(out.text(), "\x1b[3;5H\x1b[K\x1b[0;93;40m");
}

// ---- Calendar helpers ----------------------------------------------------------------------------

TEST(report_calendar, seconds_since_1970_to_the_1601_count_and_a_date)
{
    unsigned high, low;
    time_to_filetime(0, &high, &low);
    EXPECT_EQ(high, 0x019DB1DEu); // 116444736000000000 intervals of 100 ns
    EXPECT_EQ(low, 0xD53E8000u);

    struct {
        double seconds;
        int year, month, day, weekday, hour, minute, second, ms;
    } cases[] = {
        {0, 1970, 1, 1, 4, 0, 0, 0, 0},
        {-11644473600.0, 1601, 1, 1, 1, 0, 0, 0, 0},
        {951782400, 2000, 2, 29, 2, 0, 0, 0, 0},
        {951868799.25, 2000, 2, 29, 2, 23, 59, 59, 250},
        {1425489573.5, 2015, 3, 4, 3, 17, 19, 33, 500},
        {4102444800, 2100, 1, 1, 5, 0, 0, 0, 0},
        {4107542400, 2100, 3, 1, 1, 0, 0, 0, 0}, // 2100 has no 29 February
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("seconds " + std::to_string(c.seconds));
        time_to_filetime(c.seconds, &high, &low);
        calendar_time t = filetime_to_calendar(high, low);
        EXPECT_EQ(std::make_tuple(t.year, t.month, t.day, t.day_of_week, t.hour, t.minute, t.second),
                  std::make_tuple(c.year, c.month, c.day, c.weekday, c.hour, c.minute, c.second));
        EXPECT_NEAR(t.milliseconds, c.ms, 1);
    }
}

TEST(report_calendar, picture_formatters)
{
    scoped_env locale("LC_ALL", "C");
    unsigned high, low;
    time_to_filetime(1425489573, &high, &low); // 2015-03-04 17:19:33, a Wednesday
    calendar_time t = filetime_to_calendar(high, low);
    struct {
        bool date;
        const char *picture, *text;
    } cases[] = {
        {true, "yyyy-MM-dd", "2015-03-04"},
        {true, "yyyy-MMM-dd", "2015-Mar-04"},
        {true, "d/M/yy", "4/3/15"},
        {true, "dddd d MMMM yyyy", "Wednesday 4 March 2015"},
        {true, "ddd', the 'd", "Wed, the 4"},
        {false, "HH:mm:ss", "17:19:33"},
        {false, "h:mm tt", "5:19 PM"},
        {false, "H'h'm", "17h19"},
    };
    for (const auto &c : cases) {
        char out[100];
        int n = c.date ? format_date(&t, c.picture, out, sizeof out) : format_time(&t, c.picture, out, sizeof out);
        EXPECT_STREQ(out, c.text) << c.picture;
        EXPECT_EQ(n, (int)strlen(c.text)) << c.picture;
    }
    char small[5];
    EXPECT_EQ(format_date(&t, "yyyy-MM-dd", small, sizeof small), 4);
    EXPECT_STREQ(small, "2015");
}

// Morvane diagnostics: reports, warnings, questions and fatal errors, with their logs,
// the console helpers and the calendar/time-stamp helpers the logs use.
#pragma once

enum report_type {
    REPORT_MESSAGE = 1, REPORT_BEGIN = 2, REPORT_END = 3, REPORT_PROGRESS = 4,
    REPORT_FATAL = 5, REPORT_WARNING = 6, REPORT_QUESTION = 7,
};

struct report_record {
    int type;
    const char *source;
    int line;
    unsigned thread;
    const char *message;
    int owned;            // 1 when message is a private copy that the stack frees
    double time;
    double value, total;  // progress, 0 when unused
    unsigned char answer; // yes/no answer, 1 = yes
};

// ---- Settings -------------------------------------------------------------------------------

// 1 = framed window, 0 = full screen. Set by the application before the window opens;
// selects the windowed behaviour of errors (log file, message boxes).
extern unsigned char windowed;

// Receives every record that is output; report_output by default, nullptr disables output.
// The return value is not used by the stack.
extern int (*report_handler)(report_record *record);

extern int warnings_log_enabled; // 1: warnings are appended to "warnings.log"
extern int console_mode;         // 1: framed-window warnings go to the console, not a box

// ---- Seam to the window layer -----------------------------------------------------------------
// The message box and the graphics release live in the window layer, which sets these when it
// opens a window. Left at nullptr (no window, tests): a box prints "caption: text" to standard
// error and the release does nothing.
extern void (*report_message_box)(const char *caption, const char *text);
extern void (*report_graphics_close)();

// ---- Reporting -------------------------------------------------------------------------------

// Reports a message, BEGIN/END of a block, a warning, a question or a fatal error.
// Returns the answer of a question (0 or 1), else 0. copy != 0 duplicates the message.
int report_inner(const char *source, int line, int type, const char *message, int copy);
[[noreturn]] void fatal_error(const char *source, int line, const char *message, int copy);

// The default handler: console text, warnings.log, and the framed-window boxes.
int report_output(report_record *record);
// The question handler: prints "<message> (Y/N) ", reads a word from standard input; returns 1.
int ask_yes_no(report_record *record);

// Progress of the current record (the top one, or the one below when the top has no message).
report_record *progress_touch();
void progress_set(double value);
void progress_set2(double value, double total);
void progress_add(double delta);

// Read-only views of the record stack (the bottom blank record counts as one).
unsigned report_stack_depth();
unsigned report_stack_capacity();
const report_record *report_stack_record(unsigned index); // 0 = bottom; nullptr past the top
double report_start_time(); // time_now when the stack was created

// ---- Framed-window logs and boxes -----------------------------------------------------------
void graphics_error_log(const char *message);            // appends to "graphics_error.log"
void graphics_error_box(const char *message);            // log + box "Errr"
[[noreturn]] void graphics_fatal(const char *message);   // log + box "Oh sod it" + release + exit 1

// ---- Console (standard output, ANSI escape sequences) ------------------------------------------
void console_goto(int x, int y); // 1-based column x, row y
void console_clear();
void console_clear_line();       // from the cursor to the end of its line
void console_colour(int attribute); // text attribute: bits 1 blue, 2 green, 4 red, 8 bright; x16 background
// The escape sequence console_colour writes, for the given attribute; returns its length.
int console_colour_sequence(int attribute, char *out, int size);

// ---- Calendar and time stamps ------------------------------------------------------------------

struct calendar_time {
    int year, month, day_of_week, day; // month 1..12, day_of_week 0 = Sunday
    int hour, minute, second, milliseconds;
};

// Seconds since 1970-01-01 00:00 UTC -> 100-ns intervals since 1601-01-01, as high/low words.
void time_to_filetime(double seconds, unsigned *high, unsigned *low);
calendar_time filetime_to_calendar(unsigned high, unsigned low);
// Picture formatters: yyyy yy MMMM MMM MM M dddd ddd dd d / HH H hh h mm m ss s tt t,
// other characters copied, 'quoted' text literal. Month and day names follow the user's locale.
// Return the length written (output always terminated, cut at size - 1).
int format_date(const calendar_time *when, const char *picture, char *out, int size);
int format_time(const calendar_time *when, const char *picture, char *out, int size);
// The log stamp for now, local time: "yyyy-MMM-dd HH:mm:ss". out holds at least 202 bytes.
void report_time_stamp(char *out);

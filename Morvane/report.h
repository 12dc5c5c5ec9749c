// Morvane diagnostics: reports, warnings, questions and fatal errors, with their logs.
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

// 1 = framed window, 0 = full screen. Set by the application before the window opens;
// selects the windowed behaviour of errors (log file, message boxes).
extern unsigned char windowed;

int report_inner(const char *source, int line, int type, const char *message, int copy);
[[noreturn]] void fatal_error(const char *source, int line, const char *message, int copy);

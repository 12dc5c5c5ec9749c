// Morvane diagnostics: the report stack behind report_inner, fatal errors, the default
// output routine with its console forms and log files, progress and yes/no questions.
#include "Morvane/report.h"

#include "Morvane/clock.h"
#include "Morvane/growarray.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

unsigned char windowed = 0;
int (*report_handler)(report_record *record) = report_output;
int warnings_log_enabled = 1;
int console_mode = 0;
void (*report_message_box)(const char *caption, const char *text) = nullptr;
void (*report_graphics_close)() = nullptr;

// The record stack: a growable array whose bottom record is blank and never popped.
static struct {
    growarray stack; // of report_record; data is nullptr until the first report
    double start_time;
} report;

static const char report_source[] = "Morvane/report";

// ---- Stack ---------------------------------------------------------------------------------------

static report_record *stack_records() { return (report_record *)report.stack.data; }
static report_record *stack_top() { return &stack_records()[report.stack.count - 1]; }
static void stack_push(const report_record *record) { growarray_append(&report.stack, record); }
static void stack_pop() { growarray_remove(&report.stack, report.stack.count - 1); }

static void stack_create()
{
    if (report.stack.data) return;
    growarray_init(&report.stack, sizeof(report_record), 1);
    report_record blank = {};
    stack_push(&blank);
    report.start_time = time_now();
}

// Frees a record's private copy and forgets it, so it is neither used nor freed again.
static void release_message(report_record *record)
{
    if (record->owned) {
        free((void *)record->message);
        record->message = nullptr;
    }
    record->owned = 0;
}

static report_record make_record(const char *source, int line, int type, const char *message,
                                 int copy)
{
    report_record r = {};
    r.type = type;
    r.source = source;
    r.line = line;
    r.thread = (unsigned)gettid();
    if (copy && message) {
        r.message = strdup(message);
        r.owned = 1;
    } else {
        r.message = message;
    }
    r.time = time_now();
    return r;
}

unsigned report_stack_depth() { return report.stack.count; }
unsigned report_stack_capacity() { return report.stack.capacity; }
double report_start_time() { return report.start_time; }

const report_record *report_stack_record(unsigned index)
{
    return index < report.stack.count ? &stack_records()[index] : nullptr;
}

// ---- report_inner and fatal_error ----------------------------------------------------------------

// END: pop the block's current record, output the block's own record a second time, clear it.
static void report_end()
{
    if (report.stack.count <= 1) fatal_error(report_source, 92, "Trying to pop empty stack in report_inner", 0);
    release_message(stack_top());
    stack_pop();
    report_record *block = stack_top();
    if (report_handler) {
        block->type = REPORT_END;
        report_handler(block);
    }
    release_message(block);
    *block = report_record{};
}

int report_inner(const char *source, int line, int type, const char *message, int copy)
{
    stack_create();
    if (type == REPORT_END) {
        report_end();
        return 0;
    }
    if (type != REPORT_MESSAGE && type != REPORT_BEGIN && type != REPORT_FATAL &&
        type != REPORT_WARNING && type != REPORT_QUESTION)
        fatal_error(report_source, 126, "Unknown ReportType in report_inner", 0);

    report_record record = make_record(source, line, type, message, copy);
    release_message(stack_top());
    int pushed = type == REPORT_WARNING || type == REPORT_QUESTION;
    if (pushed) stack_push(&record);
    else *stack_top() = record;

    report_record *top = stack_top();
    if (report_handler) report_handler(top);
    int answer = top->answer;

    if (type == REPORT_BEGIN) {
        report_record blank = {};
        stack_push(&blank);
    } else if (type == REPORT_FATAL) {
        exit(1);
    } else if (pushed) {
        release_message(top);
        stack_pop();
    }
    return answer;
}

void fatal_error(const char *source, int line, const char *message, int copy)
{
    stack_create();
    report_record record = make_record(source, line, REPORT_FATAL, message, copy);
    release_message(stack_top());
    *stack_top() = record;
    if (report_handler) report_handler(stack_top());
    exit(1);
}

// ---- Progress ------------------------------------------------------------------------------------

// The current record: the top one, or the one below when a block's fresh record has no message.
static report_record *current_record()
{
    stack_create();
    report_record *top = stack_top();
    if (report.stack.count >= 2 && !top->message) return top - 1;
    return top;
}

report_record *progress_touch()
{
    report_record *r = current_record();
    r->type = REPORT_PROGRESS;
    return r;
}

static void progress_output(report_record *r)
{
    if (report_handler) report_handler(r);
}

void progress_set(double value)
{
    report_record *r = progress_touch();
    r->value = value;
    progress_output(r);
}

void progress_set2(double value, double total)
{
    report_record *r = progress_touch();
    r->value = value;
    r->total = total;
    progress_output(r);
}

void progress_add(double delta)
{
    report_record *r = progress_touch();
    r->value += delta;
    progress_output(r);
}

// ---- Default output ------------------------------------------------------------------------------

static void append_stamped_line(const char *path, const char *message)
{
    char stamp[202];
    report_time_stamp(stamp);
    FILE *f = fopen(path, "at");
    if (!f) return;
    fprintf(f, "%s %s\n", stamp, message ? message : "");
    fclose(f);
}

static void message_box(const char *caption, const char *text)
{
    if (report_message_box) report_message_box(caption, text);
    else fprintf(stderr, "%s: %s\n", caption, text ? text : "");
}

void graphics_error_log(const char *message) { append_stamped_line("graphics_error.log", message); }

void graphics_error_box(const char *message)
{
    graphics_error_log(message);
    message_box("Errr", message);
}

void graphics_fatal(const char *message)
{
    graphics_error_log(message);
    message_box("Oh sod it", message);
    if (report_graphics_close) report_graphics_close();
    exit(1);
}

static void output_warning(const char *message)
{
    if (warnings_log_enabled) append_stamped_line("warnings.log", message);
    if (windowed != 1) return;
    if (console_mode) {
        printf("\n[WARNING] %s\nPress any key to continue program\n", message ? message : "");
        fflush(stdout);
        // console_mode is read again and the wait happens only if it is clear now, so in
        // practice there is no wait: the program keeps that order on purpose.
        // cppcheck-suppress knownConditionTrueFalse
        if (!console_mode) getchar();
    } else {
        graphics_error_box(message);
    }
}

int report_output(report_record *record)
{
    switch (record->type) {
    case REPORT_FATAL:
        if (windowed == 1) graphics_fatal(record->message);
        printf("\n[FATAL ERROR] %s\n", record->message ? record->message : "");
        fflush(stdout);
        // Standard output may be invisible; the pause is the only notice in full screen.
        wait_seconds(2.5);
        return 1;
    case REPORT_WARNING:
        output_warning(record->message);
        return 1;
    case REPORT_QUESTION:
        return ask_yes_no(record);
    default:
        if (record->message) printf("%s", record->message);
        if (record->total > 0) printf(" [%lg/%lg]", record->value, record->total);
        else if (record->value > 0) printf(" [%lg]", record->value);
        printf("\n");
        fflush(stdout);
        return 1;
    }
}

int ask_yes_no(report_record *record)
{
    printf("%s (Y/N) ", record->message ? record->message : "");
    fflush(stdout);
    char word[1000];
    word[0] = 0;
    if (scanf("%999s", word) != 1) word[0] = 0;
    char c = word[0];
    if (c >= 'A' && c <= 'Z') c = (char)(c - 'A' + 'a');
    record->answer = c == 'y';
    return 1;
}

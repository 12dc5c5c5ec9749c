// Fuzz target: the report stack, driven by a byte stream of operations (message, BEGIN, END,
// warning, question, the four progress operations), with a quiet handler that records what it
// is handed. A model of the stack follows every operation: after each one the depth, every
// record's type, message, ownership and progress figures, and the record the handler saw must
// match it. END is never sent at the bottom (that is a defined fatal exit), and every input
// ends back at the bottom record.
#include <deque>

#include "Morvane/report.h"
#include "fuzz_input.h"

struct model_record {
    int type; const char *source; int line; std::string message; bool has_message, owned; double value, total;
};
static std::vector<model_record> model;   // the stack as it must be
static std::vector<std::string> seen;     // what the handler was handed
static unsigned char next_answer;

// A record as text, its ownership only when asked for (the handler's copy has none to compare).
static std::string describe(const model_record &r, bool owned) {
    char out[200];
    snprintf(out, sizeof out, "type %d from %p line %d '%s'%s%s [%.17g/%.17g]", r.type, (const void *)r.source, r.line,
             r.message.c_str(), r.has_message ? "" : " (none)", owned && r.owned ? " owned" : "", r.value, r.total);
    return out;
}
static std::string describe(const report_record *r, bool owned) {
    return describe({r->type, r->source, r->line, r->message ? r->message : "", r->message != nullptr, r->owned != 0,
                     r->value, r->total}, owned);
}

static int quiet_handler(report_record *r) {
    seen.push_back(describe(r, false));
    if (r->type == REPORT_QUESTION) r->answer = next_answer;
    return 1;
}

static const char *const sources[] = {"fentra", "Morvane/gfx_opengl", "Morvane/bitmapfonts"};

static void expect_seen(const model_record &m, const char *what) {
    FUZZ_CHECK(seen.size() == 1 && seen[0] == describe(m, false), "%s: handed %zu records, the first %s, expected %s",
               what, seen.size(), seen.empty() ? "-" : seen[0].c_str(), describe(m, false).c_str());
}

static void expect_stack(const char *what) {
    FUZZ_CHECK(report_stack_depth() == model.size(), "%s: depth %u, expected %zu", what, report_stack_depth(), model.size());
    FUZZ_CHECK(report_stack_capacity() >= report_stack_depth(), "%s: capacity %u below depth", what, report_stack_capacity());
    for (size_t i = 0; i < model.size(); i++) {
        std::string got = describe(report_stack_record((unsigned)i), true), expected = describe(model[i], true);
        FUZZ_CHECK(got == expected, "%s: record %zu is %s, expected %s", what, i, got.c_str(), expected.c_str());
    }
    FUZZ_CHECK(report_stack_record((unsigned)model.size()) == nullptr, "%s: a record past the top", what);
}

static void end_block(int line) {
    seen.clear();
    report_inner(sources[0], line, REPORT_END, nullptr, 0);
    model.pop_back();
    model.back().type = REPORT_END;
    expect_seen(model.back(), "END");
    model.back() = model_record{};
    expect_stack("END");
}

// One report of a type that report_inner takes as given (message, BEGIN, warning, question).
static void report(int type, const char *source, int line, const char *message, int copy) {
    seen.clear();
    model_record made = {type, source, line, message ? message : "", message != nullptr, copy && message, 0, 0};
    int answer = report_inner(source, line, type, message, copy);
    model_record &top = model.back();
    if (top.owned) top.has_message = false, top.message.clear(), top.owned = false;   // released at every report
    expect_seen(made, "report");
    if (type == REPORT_MESSAGE || type == REPORT_BEGIN) top = made;
    if (type == REPORT_BEGIN) model.push_back(model_record{});
    int expected_answer = type == REPORT_QUESTION ? next_answer : 0;
    FUZZ_CHECK(answer == expected_answer, "type %d returned %d, expected %d", type, answer, expected_answer);
    expect_stack("report");
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    report_handler = quiet_handler;
    model.push_back(model_record{});
    report(REPORT_MESSAGE, sources[0], 1, "", 0);   // creates the stack
    return 0;
}

enum op_kind { op_message, op_begin, op_end, op_warning, op_question, op_touch, op_set, op_set2, op_add, op_count };

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    std::deque<std::string> texts;   // messages handed over without a copy must outlive their records
    for (int line = 1; in.size > 0; line++) {
        uint8_t op = fuzz_get<uint8_t>(in);
        int kind = op % op_count;
        const char *message = nullptr;
        if (!(op & 0x80) && kind <= op_question) message = texts.emplace_back(fuzz_string(in, 24)).c_str();
        static const int types[] = {REPORT_MESSAGE, REPORT_BEGIN, REPORT_END, REPORT_WARNING, REPORT_QUESTION};
        if (kind == op_question) next_answer = fuzz_get<uint8_t>(in) & 1;
        if (kind == op_end && model.size() > 1) end_block(line);
        if (kind <= op_question && kind != op_end) report(types[kind], sources[(op >> 4) % 3], line, message, (op >> 6) & 1);
        if (kind <= op_question) continue;
        // progress: on the top record, or on the one below when the top has no message
        seen.clear();
        size_t index = model.size() >= 2 && !model.back().has_message ? model.size() - 2 : model.size() - 1;
        model_record &current = model[index];
        current.type = REPORT_PROGRESS;
        double a = fuzz_get<int16_t>(in) / 8.0, b = fuzz_get<int16_t>(in) / 8.0;
        if (kind == op_touch)
            FUZZ_CHECK(progress_touch() == report_stack_record((unsigned)index) && seen.empty(),
                       "progress_touch gave another record, or called the handler");
        else if (kind == op_set) progress_set(a), current.value = a;
        else if (kind == op_set2) progress_set2(a, b), current.value = a, current.total = b;
        else progress_add(a), current.value += a;
        if (kind != op_touch) expect_seen(current, "progress");
        expect_stack("progress");
    }
    while (model.size() > 1) end_block(0);
    report(REPORT_MESSAGE, sources[0], 1, "", 0);   // a bottom message that outlives the texts
    return 0;
}

// Fuzz target: the report stack, driven by a byte stream of operations (message, BEGIN, END,
// warning, question, the four progress operations), with a quiet handler that records what it
// is handed. A model of the stack follows every operation: after each one the depth, every
// record's type, message, ownership and progress figures, and the record the handler saw must
// match it. END is never sent at the bottom (that is a defined fatal exit), and every input
// ends back at the bottom record.
#include <deque>
#include <string>
#include <vector>

#include "Morvane/report.h"
#include "fuzz_input.h"

struct model_record {
    int type;
    const char *source;
    int line;
    std::string message;
    bool has_message;
    bool owned;
    double value, total;
};

static std::vector<model_record> model;

// What the handler was handed, copied at the call.
struct seen_record {
    int type;
    const char *source;
    int line;
    std::string message;
    bool has_message;
    double value, total;
};
static std::vector<seen_record> seen;
static unsigned char next_answer;

static int quiet_handler(report_record *r) {
    seen.push_back({r->type, r->source, r->line, r->message ? r->message : "", r->message != nullptr, r->value, r->total});
    if (r->type == REPORT_QUESTION) r->answer = next_answer;
    return 1;
}

static const char *const sources[] = {"fentra", "Morvane/gfx_opengl", "Morvane/bitmapfonts"};
static const char closing_message[] = "";

static bool same(double a, double b) { return a == b || (a != a && b != b); }

static model_record blank() { return {0, nullptr, 0, "", false, false, 0, 0}; }

// The progress operations act on the top record, or on the one below when the top has none.
static size_t current_index() {
    size_t top = model.size() - 1;
    return model.size() >= 2 && !model[top].has_message ? top - 1 : top;
}

static void expect_seen(const model_record &m, const char *what) {
    FUZZ_CHECK(seen.size() == 1, "%s: the handler was called %zu times", what, seen.size());
    const seen_record &s = seen[0];
    FUZZ_CHECK(s.type == m.type && s.source == m.source && s.line == m.line, "%s: handed type %d line %d, expected %d %d",
               what, s.type, s.line, m.type, m.line);
    FUZZ_CHECK(s.has_message == m.has_message && s.message == m.message, "%s: handed message '%s', expected '%s'", what,
               s.message.c_str(), m.message.c_str());
    FUZZ_CHECK(same(s.value, m.value) && same(s.total, m.total), "%s: handed [%g/%g], expected [%g/%g]", what, s.value,
               s.total, m.value, m.total);
}

static void expect_stack(const char *what) {
    FUZZ_CHECK(report_stack_depth() == model.size(), "%s: depth %u, expected %zu", what, report_stack_depth(), model.size());
    FUZZ_CHECK(report_stack_capacity() >= report_stack_depth(), "%s: capacity %u below depth", what, report_stack_capacity());
    for (size_t i = 0; i < model.size(); i++) {
        const report_record *r = report_stack_record((unsigned)i);
        const model_record &m = model[i];
        FUZZ_CHECK(r->type == m.type && r->source == m.source && r->line == m.line,
                   "%s: record %zu has type %d line %d, expected %d %d", what, i, r->type, r->line, m.type, m.line);
        FUZZ_CHECK((r->message != nullptr) == m.has_message && (!r->message || m.message == r->message),
                   "%s: record %zu has message '%s', expected '%s'", what, i, r->message ? r->message : "(none)",
                   m.has_message ? m.message.c_str() : "(none)");
        FUZZ_CHECK((r->owned != 0) == m.owned, "%s: record %zu owned %d, expected %d", what, i, r->owned, m.owned);
        FUZZ_CHECK(same(r->value, m.value) && same(r->total, m.total), "%s: record %zu [%g/%g], expected [%g/%g]", what,
                   i, r->value, r->total, m.value, m.total);
    }
    FUZZ_CHECK(report_stack_record((unsigned)model.size()) == nullptr, "%s: a record past the top", what);
}

enum op_kind { op_message, op_begin, op_end, op_warning, op_question, op_touch, op_set, op_set2, op_add, op_count };

static void end_block(int line) {
    seen.clear();
    report_inner(sources[0], line, REPORT_END, nullptr, 0);
    model.pop_back();
    model_record &block = model.back();
    block.type = REPORT_END;
    expect_seen(block, "END");
    block = blank();
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
    if (type == REPORT_BEGIN) model.push_back(blank());
    if (type == REPORT_QUESTION) FUZZ_CHECK(answer == next_answer, "question answered %d, handler said %d", answer, next_answer);
    else FUZZ_CHECK(answer == 0, "type %d returned %d", type, answer);
    expect_stack("report");
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    report_handler = quiet_handler;
    report_inner(sources[0], 1, REPORT_MESSAGE, closing_message, 0);   // creates the stack
    model.push_back({REPORT_MESSAGE, sources[0], 1, closing_message, true, false, 0, 0});
    seen.clear();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input in = {data, size};
    std::deque<std::string> texts;   // messages handed over without a copy must outlive their records
    for (int line = 1; fuzz_left(in) > 0; line++) {
        uint8_t op = fuzz_u8(in);
        const char *source = sources[(op >> 4) % 3];
        int copy = (op >> 6) & 1;
        const char *message = nullptr;
        if (!(op & 0x80) && (op % op_count <= op_question)) {
            texts.push_back(fuzz_string(in, 24));
            message = texts.back().c_str();
        }
        switch (op % op_count) {
        case op_message: report(REPORT_MESSAGE, source, line, message, copy); break;
        case op_begin: report(REPORT_BEGIN, source, line, message, copy); break;
        case op_end:
            if (model.size() > 1) end_block(line);
            break;
        case op_warning: report(REPORT_WARNING, source, line, message, copy); break;
        case op_question:
            next_answer = fuzz_u8(in) & 1;
            report(REPORT_QUESTION, source, line, message, copy);
            break;
        default: {
            seen.clear();
            model_record &current = model[current_index()];
            current.type = REPORT_PROGRESS;
            double a = (int16_t)fuzz_u16(in) / 8.0, b = (int16_t)fuzz_u16(in) / 8.0;
            if (op % op_count == op_touch) {
                const report_record *r = progress_touch();
                FUZZ_CHECK(r == report_stack_record((unsigned)current_index()), "progress_touch gave another record");
                FUZZ_CHECK(seen.empty(), "progress_touch called the handler");
            } else {
                if (op % op_count == op_set) progress_set(a), current.value = a;
                else if (op % op_count == op_set2) progress_set2(a, b), current.value = a, current.total = b;
                else progress_add(a), current.value += a;
                expect_seen(current, "progress");
            }
            expect_stack("progress");
        }
        }
    }
    while (model.size() > 1) end_block(0);
    // Leave the bottom record holding a message that outlives this input's texts.
    report(REPORT_MESSAGE, sources[0], 1, closing_message, 0);
    return 0;
}

// Morvane calendar helpers: seconds since 1970 to the 100-ns count since 1601 and to a
// calendar date, the date/time picture formatters, and the local time stamp of the logs.
#include "Morvane/report.h"

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <locale.h>

// 1601-01-01 to 1970-01-01 in seconds (369 years, 89 of them leap years).
static const double seconds_1601_to_1970 = 11644473600.0;
static const int64_t days_1601_to_1970 = 134774;

void time_to_filetime(double seconds, unsigned *high, unsigned *low)
{
    double count = (seconds + seconds_1601_to_1970) * 1e7;
    double h = (double)(int64_t)(count / 4294967296.0);
    if (h * 4294967296.0 > count) h -= 1;
    *high = (unsigned)h;
    *low = (unsigned)(int64_t)(count - h * 4294967296.0);
}

// Civil date from days since 1970-01-01 (proleptic Gregorian, eras of 400 years).
static void civil_from_days(int64_t z, int *year, int *month, int *day)
{
    z += 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    int d = (int)(doy - (153 * mp + 2) / 5 + 1);
    int m = (int)(mp < 10 ? mp + 3 : mp - 9);
    *year = (int)(yoe + era * 400 + (m <= 2));
    *month = m;
    *day = d;
}

calendar_time filetime_to_calendar(unsigned high, unsigned low)
{
    uint64_t count = ((uint64_t)high << 32) | low;
    uint64_t ms_total = count / 10000;
    uint64_t seconds = ms_total / 1000;
    int64_t days = (int64_t)(seconds / 86400);
    unsigned in_day = (unsigned)(seconds % 86400);
    calendar_time c = {};
    civil_from_days(days - days_1601_to_1970, &c.year, &c.month, &c.day);
    c.day_of_week = (int)((days + 1) % 7); // 1601-01-01 was a Monday
    c.hour = (int)(in_day / 3600);
    c.minute = (int)(in_day / 60 % 60);
    c.second = (int)(in_day % 60);
    c.milliseconds = (int)(ms_total % 1000);
    return c;
}

// ---- Picture formatting --------------------------------------------------------------------------

// strftime in the user's locale (from the environment), falling back to the C locale.
static void locale_strftime(char *out, size_t size, const char *format, const tm *when)
{
    locale_t user = newlocale(LC_TIME_MASK, "", (locale_t)0);
    if (user) {
        strftime_l(out, size, format, when, user);
        freelocale(user);
    } else {
        strftime(out, size, format, when);
    }
}

static tm tm_of(const calendar_time *c)
{
    tm t = {};
    t.tm_year = c->year - 1900;
    t.tm_mon = c->month - 1;
    t.tm_mday = c->day;
    t.tm_wday = c->day_of_week;
    t.tm_hour = c->hour;
    t.tm_min = c->minute;
    t.tm_sec = c->second;
    return t;
}

struct picture_out {
    char *out;
    int size, length;
};

static void put_text(picture_out *p, const char *text)
{
    for (; *text; ++text)
        if (p->length < p->size - 1) p->out[p->length++] = *text;
}

static void put_number(picture_out *p, int value, int digits)
{
    char buf[16];
    snprintf(buf, sizeof buf, "%0*d", digits, value);
    put_text(p, buf);
}

static int run_length(const char *s)
{
    int n = 1;
    while (s[n] == s[0]) ++n;
    return n;
}

// Copies a quoted run ('' is a quote) and returns the characters consumed.
static int put_quoted(picture_out *p, const char *s)
{
    int i = 1;
    while (s[i]) {
        if (s[i] == '\'' && s[i + 1] == '\'') { put_text(p, "'"); i += 2; continue; }
        if (s[i] == '\'') return i + 1;
        char one[2] = {s[i], 0};
        put_text(p, one);
        ++i;
    }
    return i;
}

// One field of a picture; returns false when the letter is not a field of this kind.
static bool put_date_field(picture_out *p, char letter, int n, const calendar_time *c)
{
    tm t = tm_of(c);
    char name[100];
    switch (letter) {
    case 'y':
        if (n <= 2) put_number(p, c->year % 100, n);
        else put_number(p, c->year, 4);
        return true;
    case 'M':
        if (n <= 2) put_number(p, c->month, n);
        else {
            locale_strftime(name, sizeof name, n == 3 ? "%b" : "%B", &t);
            put_text(p, name);
        }
        return true;
    case 'd':
        if (n <= 2) put_number(p, c->day, n);
        else {
            locale_strftime(name, sizeof name, n == 3 ? "%a" : "%A", &t);
            put_text(p, name);
        }
        return true;
    }
    return false;
}

static bool put_time_field(picture_out *p, char letter, int n, const calendar_time *c)
{
    int digits = n >= 2 ? 2 : 1;
    switch (letter) {
    case 'H': put_number(p, c->hour, digits); return true;
    case 'h': put_number(p, (c->hour + 11) % 12 + 1, digits); return true;
    case 'm': put_number(p, c->minute, digits); return true;
    case 's': put_number(p, c->second, digits); return true;
    case 't': put_text(p, n >= 2 ? (c->hour < 12 ? "AM" : "PM") : (c->hour < 12 ? "A" : "P"));
        return true;
    }
    return false;
}

static int format_picture(const calendar_time *when, const char *picture, char *out, int size,
                          bool date)
{
    if (size <= 0) return 0;
    picture_out p = {out, size, 0};
    for (const char *s = picture; *s;) {
        if (*s == '\'') { s += put_quoted(&p, s); continue; }
        int n = run_length(s);
        bool field = date ? put_date_field(&p, *s, n, when) : put_time_field(&p, *s, n, when);
        if (!field) {
            char one[2] = {*s, 0};
            put_text(&p, one);
            n = 1;
        }
        s += n;
    }
    out[p.length] = 0;
    return p.length;
}

int format_date(const calendar_time *when, const char *picture, char *out, int size)
{
    return format_picture(when, picture, out, size, true);
}

int format_time(const calendar_time *when, const char *picture, char *out, int size)
{
    return format_picture(when, picture, out, size, false);
}

void report_time_stamp(char *out)
{
    // Date and time are each limited to 100 characters, as in the log's original layout.
    char date[100], clock_text[100];
    time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    locale_strftime(date, sizeof date, "%Y-%b-%d", &local);
    locale_strftime(clock_text, sizeof clock_text, "%H:%M:%S", &local);
    snprintf(out, 202, "%s %s", date, clock_text);
}

// Morvane console helpers: cursor placement, clearing and text colour on standard output,
// written as ANSI escape sequences.
#include "Morvane/report.h"

#include <cstdio>

void console_goto(int x, int y)
{
    printf("\x1b[%d;%dH", y, x);
    fflush(stdout);
}

void console_clear()
{
    printf("\x1b[2J\x1b[H"); // the cleared cells take the current attribute
    fflush(stdout);
}

void console_clear_line()
{
    printf("\x1b[K");
    fflush(stdout);
}

// Attribute bits 1 blue, 2 green, 4 red, 8 bright (the same four again x16 for the background);
// ANSI numbers its eight colours with red as bit 0 and blue as bit 2.
static int ansi_colour(int bits)
{
    return ((bits & 4) ? 1 : 0) | ((bits & 2) ? 2 : 0) | ((bits & 1) ? 4 : 0);
}

int console_colour_sequence(int attribute, char *out, int size)
{
    int fg = attribute & 15, bg = (attribute >> 4) & 15;
    int fg_code = ((fg & 8) ? 90 : 30) + ansi_colour(fg);
    int bg_code = ((bg & 8) ? 100 : 40) + ansi_colour(bg);
    int n = snprintf(out, (size_t)size, "\x1b[0;%d;%dm", fg_code, bg_code);
    return n < size ? n : size - 1;
}

void console_colour(int attribute)
{
    char seq[32];
    console_colour_sequence(attribute, seq, sizeof seq);
    fputs(seq, stdout);
    fflush(stdout);
}

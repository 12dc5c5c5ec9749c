// Fentra's side of its web page: the setup in the page's address, rings opened in the page,
// and files the program writes offered to the browser as downloads.
#pragma once

// Starts in the setup of the page's address fragment (#lattice=kora&beam=K...); a bad one is
// said in one line on the console and on the page, and the start stays the default. Also gives
// the page its "Copy link" and "Open ring…" services.
void apply_page_link();
// Installs a ring opened in the page since the last frame in KORA's place and switches it on,
// its matched beam following as after I.
void take_opened_ring();
// Offers a file the program has written as a download of the same name (the file goes).
void offer_written_file(const char *name, const char *type);

// What the web platform's files share: the event handlers, the waits that hand the page back
// to the browser, the canvas following the browser window, and screenshots offered to the
// browser as downloads.
#pragma once

// Registers the keyboard, mouse, wheel, touch, focus and size handlers with the browser.
void install_event_handlers();
// True when the canvas is the whole browser window (full screen), so it follows its size.
bool canvas_follows_browser_window();
// Resizes a full-screen canvas and the view to the browser window when that has changed.
void follow_browser_window();
// Turns the BMP bmp_name of the page's file system into a PNG download named png_name and
// removes the BMP.
void offer_png_download(const char *bmp_name, const char *png_name);
// Offers the file file_name of the page's file system as a download named download_name, of
// the given media type ("text/csv"), and removes the file.
void offer_file_download(const char *file_name, const char *download_name, const char *type);
// Hands the page to the browser for ms milliseconds (it draws the page and runs the handlers
// meanwhile); the next pump then needs no wait of its own.
void wait_in_browser(unsigned ms);
// Notes that the browser has had the page (the swap waits for it), so the next pump needs no
// wait of its own.
void browser_had_page();
// Tracks whether the page is visible and, unless a test has its own clock, makes time_now
// count only the time the page is visible.
void page_clock_install();
bool page_hidden();
// Hands the page to the browser until it is visible again.
void wait_while_hidden();

// The web platform's GL 1.x subset over WebGL 2: what the rest of the web platform calls.
// The program itself calls the GL 1.x functions of <GL/gl.h>, which gl1_webgl.cpp defines.
#pragma once

// Makes the canvas's WebGL 2 context current and creates the back buffer of width x height
// pixels; false when the browser offers no WebGL 2.
bool gl1_open(const char *canvas_selector, int width, int height);
// A new size for the back buffer (its contents are lost, as a resized window's are).
void gl1_resize(int width, int height);
// Makes the back buffer the front one and waits (up to 1 s) until the page has shown it on
// the canvas at its next display frame.
void gl1_present();
// The entry points that the layer looks up by name; nullptr for the ones the subset leaves out.
void *gl1_proc_address(const char *name);

// The web platform's GL 1.x subset over WebGL 2: what the rest of the web platform calls.
// The program itself calls the GL 1.x functions of <GL/gl.h>, which the layer's files define:
// gl1_context.cpp (context and draw path), gl1_state.cpp (fixed-function state and matrices),
// gl1_textures.cpp (textures and read-back) and thin_batches.cpp (batches drawn on the CPU).
#pragma once

// Makes the canvas's WebGL 2 context current, its drawing buffer (width x height pixels, with
// depth) being the back buffer; false when the browser offers no WebGL 2.
bool gl1_open(const char *canvas_selector, int width, int height);
// Makes any clear still pending and waits (up to 1 s) until the page has shown the canvas at
// its next display frame; the canvas is then the next frame's back buffer.
void gl1_present();
// The entry points that the layer looks up by name; nullptr for the ones the subset leaves out.
void *gl1_proc_address(const char *name);
// Whether something has been drawn since the canvas was last shown: a wait in the browser
// now could show a half-made frame.
bool gl1_drawing_unshown();

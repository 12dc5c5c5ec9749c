// What the web page can ask the running program (the browser tests among them): how far the
// beam has gone round the ring, its last step, and the mouse buttons the program holds.
#include "Morvane/gfx_opengl.h"
#include "fentra/physics/state.h"

#include <emscripten.h>

extern "C" {
EMSCRIPTEN_KEEPALIVE double fentra_ring_position() { return sim.ring_position; }
EMSCRIPTEN_KEEPALIVE double fentra_step_length() { return sim.step_length; }
EMSCRIPTEN_KEEPALIVE unsigned fentra_mouse_buttons() { return mouse_buttons; }
}

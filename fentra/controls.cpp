// Fentra controls: magnet settings from held keys and touch drag, the edge-triggered keys for
// beams, speed, lattices and view toggles, and the keys that end or record the frame.
#include "fentra/controls.h"

#include "Morvane/gfx_opengl.h"
#include "fentra/physics/lattice.h"

magnet_keys held_magnet_keys()
{
    magnet_keys k;
    k.two = key_held('2');
    k.three = key_held('3');
    k.four = key_held('4');
    k.five = key_held('5');
    k.left = key_held(VK_LEFT);
    k.right = key_held(VK_RIGHT);
    k.six = key_held('6');
    k.seven = key_held('7');
    k.eight = key_held('8');
    k.nine = key_held('9');
    k.letter_o = key_held('O');
    k.zero = key_held('0');
    return k;
}

int touch_drag_quadrupole(int touch_mode, unsigned buttons, int previous_buttons,
                          int previous_x, int x, int W)
{
    if (!touch_mode || !buttons || !previous_buttons) return 0;
    // One unit of k for every 1/250 of the screen width; a screen narrower than 250 pixels
    // counts every pixel.
    int pixels_per_unit = W / 250 > 0 ? W / 250 : 1;
    return (previous_x - x) / pixels_per_unit;
}

void read_magnet_keys()
{
    magnets = magnets_from_keys(held_magnet_keys());
    magnets.quad_strength += touch_drag_quadrupole(sim.touch_mode, mouse_buttons,
                                                   sim.previous_mouse_buttons,
                                                   sim.previous_mouse_x, mouse_x, screen_width);
}

beam_keys pressed_beam_keys()
{
    beam_keys k;
    k.p = key_pressed('P');
    k.k = key_pressed('K');
    k.w = key_pressed('W');
    k.g = key_pressed('G');
    k.space = key_pressed(VK_SPACE);
    return k;
}

void speed_keys()
{
    if (key_pressed(VK_ADD)) sim.simulation_speed *= 2;
    if (key_pressed(VK_SUBTRACT)) sim.simulation_speed *= 0.5;
}

lattice_outcome lattice_keys()
{
    lattice_outcome o = {sim.kora_lattice, false};
    bool i = key_pressed('I'), f = key_pressed('F');
    if (i) {
        if (sim.kora_lattice) {
            o.kora_next = false;
            sim.simulation_speed = 1.0;
        } else if (!f) {
            // The KORA-matched beam follows in the next frame, once the lattice is current.
            o.kora_next = true;
            sim.fodo_cell = false;
        } else {
            sim.fodo_cell = true;
            make_fodo_matched_beam();
            o.fodo_beam = true;
            o.kora_next = false;
            f = false;
        }
    }
    if (f) {
        sim.fodo_cell = !sim.fodo_cell;
        if (sim.fodo_cell) {
            make_fodo_matched_beam();
            o.fodo_beam = true;
            o.kora_next = false;
        } else {
            sim.particle_count = 0;   // the next frame makes the default beam
        }
    }
    if (sim.fodo_cell) magnets.quad_strength += fodo_quadrupole(sim.ring_position);
    return o;
}

void toggle_keys()
{
    if (key_pressed('H')) toggle_highlight();
    if (key_pressed('A')) sim.show_graphs = !sim.show_graphs;
    if (key_pressed('L')) sim.luminous ^= 1;
    if (key_pressed('S') && !key_held(VK_CONTROL)) sim.scraper_on = !sim.scraper_on;
    if (key_pressed('C')) sim.space_charge = !sim.space_charge;
    if (key_pressed('T')) sim.optics_panel = !sim.optics_panel;
    magnets.solenoid = key_held('O') - key_held('0');
}

bool screenshot_keys_pressed() { return key_held(VK_CONTROL) && key_pressed('S'); }
bool bunch_export_keys_pressed() { return key_held(VK_CONTROL) && key_pressed('E'); }
bool quit_keys_held() { return key_held('Q') || key_held(VK_ESCAPE); }
bool slow_motion_held() { return key_held(VK_SHIFT); }

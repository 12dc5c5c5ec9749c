// Setup strings: what each key sets, the one-line messages for bad strings, writing back what
// is read, and the state a setup gives and is read from.
#include "fentra/physics/beam.h"
#include "fentra/physics/setup_string.h"

#include <gtest/gtest.h>

static bool same(const setup &a, const setup &b)
{
    return a.lattice == b.lattice && a.beam == b.beam && a.spread == b.spread && a.graphs == b.graphs &&
           a.scraper == b.scraper && a.space_charge == b.space_charge && a.luminous == b.luminous &&
           a.highlight == b.highlight && a.panel == b.panel && a.scraper_x == b.scraper_x && a.speed == b.speed;
}

TEST(setup_string, the_default_is_the_programs_start_and_writes_as_nothing)
{
    setup d = default_setup();
    EXPECT_EQ(d.lattice, setup_lattice_none);
    EXPECT_EQ(d.beam, beam_game);
    EXPECT_FALSE(d.spread || d.graphs || d.scraper || d.space_charge || d.luminous || d.highlight || d.panel);
    EXPECT_EQ(d.scraper_x, 0.03);
    EXPECT_EQ(d.speed, 1);
    EXPECT_EQ(format_setup(d), "");
    setup s;
    std::string error;
    for (const char *text : {"", "&", "beam=game&&lattice=none&"}) {
        EXPECT_TRUE(parse_setup(text, &s, &error)) << text;
        EXPECT_TRUE(same(s, d)) << text;
    }
}

TEST(setup_string, each_key_sets_its_field)
{
    setup s;
    std::string error;
    ASSERT_TRUE(parse_setup("lattice=kora&beam=K&graphs=1&spread=1", &s, &error)) << error;
    EXPECT_EQ(s.lattice, setup_lattice_kora);
    EXPECT_EQ(s.beam, beam_kv);
    EXPECT_TRUE(s.graphs && s.spread);
    EXPECT_FALSE(s.scraper || s.space_charge || s.luminous || s.highlight || s.panel);

    ASSERT_TRUE(parse_setup("lattice=fodo&beam=W&scraper=1&scraper_x=0.05&spacecharge=1&luminous=1"
                            "&highlight=1&panel=1&speed=0.25", &s, &error)) << error;
    EXPECT_EQ(s.lattice, setup_lattice_fodo);
    EXPECT_EQ(s.beam, beam_waterbag);
    EXPECT_TRUE(s.scraper && s.space_charge && s.luminous && s.highlight && s.panel);
    EXPECT_FALSE(s.graphs || s.spread);
    EXPECT_EQ(s.scraper_x, 0.05);
    EXPECT_EQ(s.speed, 0.25);

    const struct { const char *text; int beam; } beams[] = {
        {"beam=P", beam_parallel}, {"beam=G", beam_gaussian}, {"beam=game", beam_game}};
    for (const auto &b : beams) {
        ASSERT_TRUE(parse_setup(b.text, &s, &error)) << b.text;
        EXPECT_EQ(s.beam, b.beam) << b.text;
    }
    ASSERT_TRUE(parse_setup("graphs=1&graphs=0", &s, &error));   // the last one counts
    EXPECT_FALSE(s.graphs);
    ASSERT_TRUE(parse_setup("graphs=1&&spread=1&", &s, &error));   // empty items are passed over
    EXPECT_TRUE(s.graphs && s.spread);
}

TEST(setup_string, a_bad_string_gives_one_line_and_the_default_setup)
{
    const struct { std::string text, message; } cases[] = {
        {"colour=1", "unknown key \"colour\" in the setup (keys: lattice, beam, spread, graphs, scraper, "
                     "scraper_x, spacecharge, luminous, highlight, panel, speed)"},
        {"Lattice=kora", "unknown key \"Lattice\""},
        {"=1", "unknown key \"\""},
        {"lattice=ring", "bad value \"ring\" for lattice in the setup (kora, fodo or none)"},
        {"beam=k", "bad value \"k\" for beam in the setup (P, K, W, G or game)"},
        {"graphs=2", "bad value \"2\" for graphs in the setup (0 or 1)"},
        {"graphs", "bad value \"\" for graphs"},
        {"graphs=1&spread=yes", "bad value \"yes\" for spread"},
        {"speed=0", "bad value \"0\" for speed in the setup (metres a second above 0, at most 65536)"},
        {"speed=-2", "bad value \"-2\" for speed"},
        {"speed=65537", "bad value \"65537\" for speed"},
        {"speed=2x", "bad value \"2x\" for speed"},
        {"speed=nan", "bad value \"nan\" for speed"},
        {"speed=inf", "bad value \"inf\" for speed"},
        {"scraper_x=0.0701", "bad value \"0.0701\" for scraper_x in the setup (metres from 0 to 0.07)"},
        {"scraper_x=-0.01", "bad value \"-0.01\" for scraper_x"},
        {"graphs=1&" + std::string(1992, '&'), "the setup is 2001 characters long, more than 2000"},
    };
    for (const auto &c : cases) {
        setup s = {};
        std::string error;
        EXPECT_FALSE(parse_setup(c.text, &s, &error)) << c.text;
        EXPECT_EQ(error.rfind(c.message, 0), 0u) << c.text << " -> " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
        EXPECT_TRUE(same(s, default_setup())) << c.text;
    }
    setup s;
    std::string error;
    EXPECT_TRUE(parse_setup("graphs=1" + std::string(1992, '&'), &s, &error)) << "2000 characters are allowed";
    EXPECT_TRUE(parse_setup("speed=65536&scraper_x=0.07", &s, &error)) << error;
    EXPECT_TRUE(parse_setup("scraper_x=0", &s, &error)) << error;
}

TEST(setup_string, writing_gives_the_keys_that_differ_in_a_fixed_order_and_reads_back)
{
    setup s = default_setup();
    s.lattice = setup_lattice_kora, s.beam = beam_kv, s.graphs = true, s.spread = true;
    EXPECT_EQ(format_setup(s), "lattice=kora&beam=K&spread=1&graphs=1");
    s = default_setup();
    s.lattice = setup_lattice_fodo, s.beam = beam_gaussian, s.scraper = s.space_charge = s.luminous = true;
    s.highlight = s.panel = true, s.scraper_x = 0.045, s.speed = 0.1;
    EXPECT_EQ(format_setup(s), "lattice=fodo&beam=G&scraper=1&spacecharge=1&luminous=1&highlight=1&panel=1"
                               "&scraper_x=0.045&speed=0.1");
    const double speeds[] = {0.0009765625, 1.0 / 3, 2, 4096, 65536};
    for (double speed : speeds) {
        s.speed = speed;
        setup back;
        std::string error;
        ASSERT_TRUE(parse_setup(format_setup(s), &back, &error)) << error;
        EXPECT_TRUE(same(back, s)) << format_setup(s);
    }
}

TEST(setup_string, applying_sets_the_state_and_the_state_gives_the_setup_back)
{
    reset_simulation_state();
    simulation_state state = sim;
    setup s;
    std::string error;
    ASSERT_TRUE(parse_setup("lattice=kora&beam=P&spread=1&graphs=1&scraper=1&scraper_x=0.02&spacecharge=1"
                            "&luminous=1&highlight=1&panel=1&speed=4", &s, &error)) << error;
    apply_setup(s, &state);
    EXPECT_TRUE(state.kora_lattice);
    EXPECT_FALSE(state.fodo_cell);
    EXPECT_EQ(state.momentum_spread, 0.15);
    EXPECT_TRUE(state.show_graphs && state.scraper_on && state.space_charge && state.highlight && state.optics_panel);
    EXPECT_EQ(state.luminous, 1);
    EXPECT_EQ(state.scraper_x, 0.02);
    EXPECT_EQ(state.simulation_speed, 4);
    EXPECT_TRUE(same(setup_of_state(state, beam_parallel), s));

    apply_setup(default_setup(), &state);
    EXPECT_FALSE(state.kora_lattice || state.fodo_cell || state.show_graphs || state.scraper_on ||
                 state.space_charge || state.highlight || state.optics_panel);
    EXPECT_EQ(state.momentum_spread, 0);
    EXPECT_EQ(state.luminous, 0);
    EXPECT_EQ(format_setup(setup_of_state(state, beam_game)), "");
    s = default_setup();
    s.lattice = setup_lattice_fodo;
    apply_setup(s, &state);
    EXPECT_TRUE(state.fodo_cell);
    EXPECT_FALSE(state.kora_lattice);
}

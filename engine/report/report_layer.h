#pragma once

// Pictures and pages: draws brains and plots, words the methods, writes HTML. It needs no display.
//
// It computes no result: what it shows is handed to it.

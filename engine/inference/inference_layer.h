#pragma once

// What can be concluded from maps: null distributions from studies at random, p values,
// conjunctions, clusters with their regions.
//
// It writes nothing.

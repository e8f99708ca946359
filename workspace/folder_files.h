#pragma once

// The names of what the programs keep in a working folder.

/// The study table.
inline constexpr const char* KVO_TABLE_FILE = "kvo_table.txt";
/// What preprocessing was asked for, what it worked on and what it made.
inline constexpr const char* KVO_RECORD_FILE = "kvo_pp.txt";
/// The folder of the studies' maps.
inline constexpr const char* KVO_STUDY_MAPS_FOLDER = "pp";
/// The list of the maps that the meta-analysis has. That it exists shows that the folder is
/// preprocessed.
inline constexpr const char* KVO_MAPS_FILE = "kvo_maps.txt";
/// The list of how they were made.
inline constexpr const char* KVO_ANALYSES_FILE = "kvo_analyses.txt";
/// The list of the maps with a null distribution.
inline constexpr const char* KVO_ND_FILE = "kvo_nd.txt";
/// What the name of a map has appended where its negative tail is spoken of.
inline constexpr const char* KVO_NEGATIVE_TAIL = "_n";

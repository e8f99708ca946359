#pragma once

// The names of what the programs keep in a working folder.

#include <cstddef>

/// The study table.
inline constexpr const char* KVO_TABLE_FILE = "kvo_table.txt";
/// What preprocessing was asked for, what it worked on and what it made.
inline constexpr const char* KVO_RECORD_FILE = "kvo_pp.txt";
/// The folder of the studies' maps.
inline constexpr const char* KVO_STUDY_MAPS_FOLDER = "pp";
/// The folder of the results as they are given to others.
inline constexpr const char* KVO_RESULTS_FOLDER = "bids";
/// The list of the maps that the meta-analysis has. That it exists shows that the folder is
/// preprocessed.
inline constexpr const char* KVO_MAPS_FILE = "kvo_maps.txt";
/// The list of how they were made.
inline constexpr const char* KVO_ANALYSES_FILE = "kvo_analyses.txt";
/// The list of the maps with a null distribution.
inline constexpr const char* KVO_ND_FILE = "kvo_nd.txt";
/// The batch.
inline constexpr const char* KVO_BATCH_FILE = "kvo_batch.txt";

/// What the names of all images end with, and those of p-value images.
inline constexpr const char* KVO_IMAGE_SUFFIX = ".nii.gz";
inline constexpr const char* KVO_P_IMAGE_SUFFIX = "_p.nii.gz";
/// What the names of masks, and of no other images, begin with.
inline constexpr const char* KVO_MASK_PREFIX = "mask_";
/// What the name of a map has appended where its negative tail is spoken of.
inline constexpr const char* KVO_NEGATIVE_TAIL = "_n";

/// The most bytes of a result's name: a file name has 255, and that of a temporary file is up to 20
/// longer than the final one.
inline constexpr std::size_t KVO_RESULT_NAME_MAX = 235;

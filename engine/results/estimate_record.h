#pragma once

// NAME_estimate.txt: what the estimate of an analysis from peaks rests on, for whoever reads its
// maps, and for the reports that are made of them later. Lines "what: how".

#include <string>
#include <vector>

#include "engine/model/joint_estimate.h"
#include "engine/report/html.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

std::string estimate_record_file(const std::string& name);

/// What there is to be told of an estimate.
std::vector<Fact> estimate_facts(const JointFacts& facts);

std::string estimate_record(const std::vector<Fact>& facts);

/// Reads the record of an analysis; none where it has left none.
std::vector<Fact> read_estimate_record(const std::string& name);

}  // namespace kvo::results

#include "workspace/files/region_labels.h"

#include <array>
#include <cmath>

namespace {

/// The text of region n stands at n - 1.
constexpr std::array<const char*, KVO_REGIONS> REGIONS = {
    // Cerebrum, odd regions left and even ones right
    "Left precentral gyrus",
    "Right precentral gyrus",
    "Left superior frontal gyrus, dorsolateral",
    "Right superior frontal gyrus, dorsolateral",
    "Left superior frontal gyrus, orbital part",
    "Right superior frontal gyrus, orbital part",
    "Left middle frontal gyrus",
    "Right middle frontal gyrus",
    "Left middle frontal gyrus, orbital part",
    "Right middle frontal gyrus, orbital part",
    "Left inferior frontal gyrus, opercular part",
    "Right inferior frontal gyrus, opercular part",
    "Left inferior frontal gyrus, triangular part",
    "Right inferior frontal gyrus, triangular part",
    "Left inferior frontal gyrus, orbital part",
    "Right inferior frontal gyrus, orbital part",
    "Left rolandic operculum",
    "Right rolandic operculum",
    "Left supplementary motor area",
    "Right supplementary motor area",
    "Left olfactory cortex",
    "Right olfactory cortex",
    "Left superior frontal gyrus, medial",
    "Right superior frontal gyrus, medial",
    "Left superior frontal gyrus, medial orbital",
    "Right superior frontal gyrus, medial orbital",
    "Left gyrus rectus",
    "Right gyrus rectus",
    "Left insula",
    "Right insula",
    "Left anterior cingulate / paracingulate gyri",
    "Right anterior cingulate / paracingulate gyri",
    "Left median cingulate / paracingulate gyri",
    "Right median cingulate / paracingulate gyri",
    "Left posterior cingulate gyrus",
    "Right posterior cingulate gyrus",
    "Left hippocampus",
    "Right hippocampus",
    "Left parahippocampal gyrus",
    "Right parahippocampal gyrus",
    "Left amygdala",
    "Right amygdala",
    "Left calcarine fissure / surrounding cortex",
    "Right calcarine fissure / surrounding cortex",
    "Left cuneus cortex",
    "Right cuneus cortex",
    "Left lingual gyrus",
    "Right lingual gyrus",
    "Left superior occipital gyrus",
    "Right superior occipital gyrus",
    "Left middle occipital gyrus",
    "Right middle occipital gyrus",
    "Left inferior occipital gyrus",
    "Right inferior occipital gyrus",
    "Left fusiform gyrus",
    "Right fusiform gyrus",
    "Left postcentral gyrus",
    "Right postcentral gyrus",
    "Left superior parietal gyrus",
    "Right superior parietal gyrus",
    "Left inferior parietal (excluding supramarginal and angular) gyri",
    "Right inferior parietal (excluding supramarginal and angular) gyri",
    "Left supramarginal gyrus",
    "Right supramarginal gyrus",
    "Left angular gyrus",
    "Right angular gyrus",
    "Left precuneus",
    "Right precuneus",
    "Left paracentral lobule",
    "Right paracentral lobule",
    "Left caudate nucleus",
    "Right caudate nucleus",
    "Left lenticular nucleus, putamen",
    "Right lenticular nucleus, putamen",
    "Left lenticular nucleus, pallidum",
    "Right lenticular nucleus, pallidum",
    "Left thalamus",
    "Right thalamus",
    "Left heschl gyrus",
    "Right heschl gyrus",
    "Left superior temporal gyrus",
    "Right superior temporal gyrus",
    "Left temporal pole, superior temporal gyrus",
    "Right temporal pole, superior temporal gyrus",
    "Left middle temporal gyrus",
    "Right middle temporal gyrus",
    "Left temporal pole, middle temporal gyrus",
    "Right temporal pole, middle temporal gyrus",
    "Left inferior temporal gyrus",
    "Right inferior temporal gyrus",
    // Cerebellum
    "Left cerebellum, crus I",
    "Right cerebellum, crus I",
    "Left cerebellum, crus II",
    "Right cerebellum, crus II",
    "Left cerebellum, hemispheric lobule III",
    "Right cerebellum, hemispheric lobule III",
    "Left cerebellum, hemispheric lobule IV / V",
    "Right cerebellum, hemispheric lobule IV / V",
    "Left cerebellum, hemispheric lobule VI",
    "Right cerebellum, hemispheric lobule VI",
    "Left cerebellum, hemispheric lobule VIIB",
    "Right cerebellum, hemispheric lobule VIIB",
    "Left cerebellum, hemispheric lobule VIII",
    "Right cerebellum, hemispheric lobule VIII",
    "Left cerebellum, hemispheric lobule IX",
    "Right cerebellum, hemispheric lobule IX",
    "Left cerebellum, hemispheric lobule X",
    "Right cerebellum, hemispheric lobule X",
    "Cerebellum, vermic lobule I / II",
    "Cerebellum, vermic lobule III",
    "Cerebellum, vermic lobule IV / V",
    "Cerebellum, vermic lobule VI",
    "Cerebellum, vermic lobule VII",
    "Cerebellum, vermic lobule VIII",
    "Cerebellum, vermic lobule IX",
    "Cerebellum, vermic lobule X",
    // White matter
    "Anterior commissure",
    "Left anterior thalamic projections",
    "Right anterior thalamic projections",
    "Left arcuate network, anterior segment",
    "Right arcuate network, anterior segment",
    "Left arcuate network, long segment",
    "Right arcuate network, long segment",
    "Left arcuate network, posterior segment",
    "Right arcuate network, posterior segment",
    "Left striatum",
    "Left median network, cingulum",
    "Right striatum",
    "Left inferior network, uncinate fasciculus",
    "Right median network, cingulum",
    "Right inferior network, uncinate fasciculus",
    "Corpus callosum",
    "Left cortico-spinal projections",
    "Right cortico-spinal projections",
    "Left face U tract",
    "Right face U tract",
    "Left frontal aslant tract",
    "Right frontal aslant tract",
    "Middle cerebellar peduncles",
    "Left frontal inferior longitudinal fasciculus",
    "Right frontal inferior longitudinal fasciculus",
    "Left frontal orbito-polar tract",
    "Right frontal orbito-polar tract",
    "Left frontal superior longitudinal",
    "Right frontal superior longitudinal",
    "Left fronto-insular tract 1",
    "Right fronto-insular tract 1",
    "Left fronto-insular tract 2",
    "Right fronto-insular tract 2",
    "Left fronto-insular tract 3",
    "Right fronto-insular tract 3",
    "Left fronto-insular tract 4",
    "Right fronto-insular tract 4",
    "Left fronto-insular tract 5",
    "Right fronto-insular tract 5",
    "Left fronto-marginal tract",
    "Right fronto-marginal tract",
    "Left hand inferior U tract",
    "Right hand inferior U tract",
    "Left hand middle U tract",
    "Right hand middle U tract",
    "Left hand superior U tract",
    "Right hand superior U tract",
    "Left inferior network, inferior fronto-occipital fasciculus",
    "Right inferior network, inferior fronto-occipital fasciculus",
    "Left inferior network, inferior longitudinal fasciculus",
    "Right inferior network, inferior longitudinal fasciculus",
    "Left optic radiations",
    "Right optic radiations",
    "Left paracentral U tract",
    "Right paracentral U tract",
    "Left pons",
    "Right pons",
    "Left superior longitudinal fasciculus I",
    "Right superior longitudinal fasciculus I",
    "Left superior longitudinal fasciculus II",
    "Right superior longitudinal fasciculus II",
    "Left superior longitudinal fasciculus III",
    "Right superior longitudinal fasciculus III",
};

constexpr const char* UNDEFINED = "(undefined)";

/// An atlas value, taken apart.
struct Atlas_value {
  int region = 0;
  int brodmann_area = 0;
};

Atlas_value taken_apart(float value) {
  constexpr float LIMIT = 1e6F;  // far beyond any region; also keeps what is not a number out
  if (!(std::fabs(value) < LIMIT)) return {};
  const int region = static_cast<int>(value);
  const double rest = static_cast<double>(value) - region;
  return {region, static_cast<int>(std::lround(rest * 100))};
}

const char* region_text(int region) {
  if (region < 1 || region > KVO_REGIONS) return UNDEFINED;
  return REGIONS[static_cast<std::size_t>(region - 1)];
}

}  // namespace

void Q_get_mni_label(Q_string& text, float value) {
  const Atlas_value atlas = taken_apart(value);
  text = region_text(atlas.region);
  if (atlas.brodmann_area != 0) Q_strcat(text, ", BA %i", atlas.brodmann_area);
}

Q_string_list kvo_region_texts() {
  Q_string_list texts(REGIONS.begin(), REGIONS.end());
  Q_sort_string_asc(KVO_REGIONS, texts);
  return texts;
}

int kvo_region_number(std::string_view text) {
  for (int region = 1; region <= KVO_REGIONS; ++region)
    if (text == region_text(region)) return region;
  return 0;
}

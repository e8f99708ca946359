#include "companions/kvo_core/report/cluster_report.h"

#include "companions/kvo_core/report/text.h"

std::string cluster_report(const ClusterReport& report) {
  HtmlReport page(report.title, report.subtitle);
  page.heading("What was run");
  page.facts(report.facts);
  page.commands(report.commands);
  const BrainMap map{report.z, report.statistic};
  page.picture(axial_slices(map, report.background), "");
  page.picture(glass_brain(map, report.background, {}), "");
  return page.finish();
}

#include "companions/kvo_core/report/methods.h"

#include "companions/kvo_core/report/text.h"

Methods methods_of(const MethodsFacts& facts) {
  return {"Meta-analysis of " + counted(facts.studies, "study", "studies") + ".", {}};
}

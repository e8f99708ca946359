#include "engine/base/command.h"

#include <gtest/gtest.h>

#include "engine/verbs/verbs.h"

using namespace kvo::verbs;

namespace {

TEST(Command, IsUnderstoodHoweverItIsSpaced) {
  struct Case {
    const char *typed, *understood;
  };
  const Case cases[] = {
      {"pp gray_matter, 0.0, 20, gray_matter, 1", "pp gray_matter, 0.0, 20, gray_matter, 1"},
      {"pp gray_matter,0,20,gray_matter,500", "pp gray_matter, 0, 20, gray_matter, 500"},
      {"MyMean = mean", "MyMean = mean"},
      {"MyMean=mean female", "MyMean = mean female"},
      {"  a.b-c  =  mean  ", "a.b-c = mean"},
      {"mean = mean mean", "mean = mean mean"},
      {"g = globals", "g = globals"},
      {"g = globals  + patients + age, adults", "g = globals patients + age, adults"},
      {"g = globals , adults", "g = globals , adults"},
      {"m = lm a+b+c+d", "m = lm a + b + c + d"},
      {"m = lm +a , f", "m = lm a, f"},
      {"threshold MyMean, p, 0.00500, 1.000, 10", "threshold MyMean, p, 0.00500, 1.000, 10"},
      {"multi meta1, meta2, 0.00250, 0.00025, 10, 1, 2, 0.10000",
       "multi meta1, meta2, 0.00250, 0.00025, 10, 1, 2, 0.10000"},
      {"a = mask label, 41", "a = mask label, 41"},
      {"10_-20_30 = mask coordinate, 10, -20, +30", "10_-20_30 = mask coordinate, 10, -20, 30"},
      {"extract Left_amygdala", "extract Left_amygdala"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(parse_command(c.typed, all_verbs()).text(), c.understood) << "typed: " << c.typed;
}

TEST(Verbs, HaveExamplesOfTheirOwnGrammar) {
  for (const Verb& verb : all_verbs())
    EXPECT_EQ(parse_command(verb.example, all_verbs()).verb, &verb) << verb.example;
}

}  // namespace

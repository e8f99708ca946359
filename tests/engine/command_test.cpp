#include "engine/base/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/base/refusal.h"
#include "engine/verbs/verbs.h"

using namespace kvo::verbs;

namespace {

using testing::HasSubstr;

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

TEST(Command, IsRefusedWithWhatIsWrong) {
  struct Case {
    const char *typed, *reason;
  };
  const Case cases[] = {
      {"", "There is no command"},
      {"  ", "There is no command"},
      {"=", "'=' is not a command"},
      {"a =", "'a =' is not a command"},
      {"= mean", "'= mean' is not a command"},
      {", = mean", "', = mean' is not a command"},
      {"average", "'average' is not a command. The commands are: help, pp, globals, mean"},
      {"MEAN", "'MEAN' is not a command"},
      {"help me", "'help' is not a command"},
      {"mean", "'mean' needs a name for its result"},
      {"lm a", "'lm' needs a name"},
      {"x = pp gray_matter, 0, 20, gray_matter, 1", "'pp' takes no name"},
      {"a/b = mean", "The name 'a/b' holds a slash"},
      {"../a = mean", "The name '../a' begins with a full stop"},
      {"a\x01 = mean", "The name 'a\x01' holds a control character"},
      {"a\xE9 = mean", "is not valid UTF-8"},
      {"a = mean f, g", "'mean' has too many arguments"},
      {"a = mean f g", "'g' is not expected after 'f'"},
      {"a = b = mean", "'b' is not a command"},
      {"extract ..", "The mask '..' begins with a full stop"},
      {"a = mean 'f'", "A command cannot hold quotes"},
      {"pp",
       "The template is missing. The command is: pp template, anisotropy, fwhm, mask, "
       "randomizations (example: pp gray_matter"},
      {"pp gray_matter, 0, 20, gray_matter", "The randomizations is missing"},
      {"pp gray_matter, , 20, gray_matter, 1", "The anisotropy is missing"},
      {"pp gray_matter, x, 20, gray_matter, 1", "The anisotropy 'x' is not a number from 0 to 1"},
      {"pp gray_matter, 1.1, 20, gray_matter, 1", "'1.1' is not a number from 0 to 1"},
      {"pp gray_matter, nan, 20, gray_matter, 1", "'nan' is not a number"},
      {"pp gray_matter, 0, 3, gray_matter, 1", "The fwhm '3' is not a number from 4 to 100"},
      {"pp gray_matter, 0, 1e308, gray_matter, 1", "'1e308' is not a number from 4 to 100"},
      {"pp gray_matter, 0, 20, gray_matter, 0", "'0' is not a whole number from 1 to 10000"},
      {"pp gray_matter, 0, 20, gray_matter, 1.5", "'1.5' is not a whole number"},
      {"pp gray_matter, 0, 20, gray_matter, 99999999999999999999", "is not a whole number"},
      {"pp ../../x, 0, 20, gray_matter, 1", "The template '../../x' begins with a full stop"},
      {"pp gray_matter, 0, 20, a/b, 1", "The mask 'a/b' holds a slash"},
      {"pp gray_matter, 0, 20, gray_matter, 1, 2", "'pp' has too many arguments"},
      {"a = lm", "The model is missing"},
      {"a = lm +", "The model is not a list"},
      {"a = lm x +", "The model is not a list"},
      {"a = lm x + + y", "The model is not a list"},
      {"a = lm x y", "The model is not a list"},
      {"threshold a, q, 0.1, 1, 10", "'p' is expected instead of 'q'"},
      {"a = mask", "The command 'mask' is: NAME = mask label, number or NAME = mask coordinate"},
      {"a = mask sphere, 1", "The command 'mask' is: NAME = mask label, number or"},
  };
  for (const Case& c : cases) {
    try {
      FAIL() << "typed: " << c.typed
             << "\nunderstood: " << parse_command(c.typed, all_verbs()).text();
    } catch (const Refusal& refusal) {
      EXPECT_THAT(refusal.what(), HasSubstr(c.reason)) << "typed: " << c.typed;
    }
  }
}

TEST(Verbs, HaveExamplesOfTheirOwnGrammar) {
  for (const Verb& verb : all_verbs())
    EXPECT_EQ(parse_command(verb.example, all_verbs()).verb, &verb) << verb.example;
}

}  // namespace

// Table cases of parameterised tests carry a `name`: failure messages print
// it instead of the case's bytes (CASE_PRINTS_ITS_NAME(Type) beside the case
// type, where the printer looks for it), and CaseName() turns it into the
// test's name.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#define CASE_PRINTS_ITS_NAME(Case)                \
  void PrintTo(const Case& c, std::ostream* os) { \
    *os << c.name;                                \
  }

namespace case_names {

struct CaseName {
  template <typename Case>
  std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
    return info.param.name;
  }
};

}  // namespace case_names

#include "Mox/Log.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Registered at load, as production events are.
const Mox::LogHandle loadTimeEvent("LogTest_B_LOADED", 5, "loaded %s", "A library was loaded.",
                                   Mox::NoActionRequired, 60.0, 2.0, 3, 4);

// The names of registered events made by these tests, in registry order.
std::vector<std::string> testEventNames() {
  std::vector<std::string> names;
  for (const Mox::LogHandle* event : Mox::logEvents()) {
    if (std::string_view(event->name()).starts_with("LogTest_")) names.emplace_back(event->name());
  }
  return names;
}

std::unique_ptr<Mox::LogHandle> makeEvent(const char* name, int severity = 3) {
  return std::make_unique<Mox::LogHandle>(name, severity, "format", "explanation",
                                          Mox::NoActionRequired, 1.0, 2.0, 3, 4);
}

TEST(LogTest, EventsAreListedByNameUntilDestroyed) {
  EXPECT_EQ(testEventNames(), std::vector<std::string>{"LogTest_B_LOADED"});
  {
    auto c = makeEvent("LogTest_C");
    auto a = makeEvent("LogTest_A");
    EXPECT_EQ(testEventNames(),
              (std::vector<std::string>{"LogTest_A", "LogTest_B_LOADED", "LogTest_C"}));
    a.reset();
    EXPECT_EQ(testEventNames(), (std::vector<std::string>{"LogTest_B_LOADED", "LogTest_C"}));
  }
  EXPECT_EQ(testEventNames(), std::vector<std::string>{"LogTest_B_LOADED"});
}

TEST(LogTest, DuplicateNameIsRejectedAndFirstEventStays) {
  EXPECT_THROW(makeEvent("LogTest_B_LOADED"), std::logic_error);
  ASSERT_EQ(testEventNames(), std::vector<std::string>{"LogTest_B_LOADED"});
  for (const Mox::LogHandle* event : Mox::logEvents()) {
    if (event->name() == std::string_view("LogTest_B_LOADED")) {
      EXPECT_EQ(event, &loadTimeEvent);
    }
  }
  // The name is free again once its event is gone.
  { auto first = makeEvent("LogTest_D"); }
  EXPECT_NO_THROW(makeEvent("LogTest_D"));
}

TEST(LogTest, InvalidEventsAreRejected) {
  EXPECT_THROW(makeEvent("LogTest_E", 8), std::invalid_argument);
  EXPECT_THROW(makeEvent("LogTest_E", -1), std::invalid_argument);
  EXPECT_THROW(makeEvent(""), std::invalid_argument);
  EXPECT_EQ(testEventNames(), std::vector<std::string>{"LogTest_B_LOADED"});
}

}  // namespace

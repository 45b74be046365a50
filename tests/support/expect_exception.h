// One way to check a thrown exception in every test: its exact type and its exact text.
#ifndef TESTS_SUPPORT_EXPECT_EXCEPTION_H_
#define TESTS_SUPPORT_EXPECT_EXCEPTION_H_

#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

namespace opcvk_test {

// Runs `action` and asserts that it throws exactly `ExceptionType` (not a subclass) whose
// what() equals `message`.  Returns the caught exception's copy for further checks, or a
// default-constructed failure if nothing matched.
template <typename ExceptionType, typename Action>
::testing::AssertionResult throwsWithMessage(Action&& action, std::string const& message) {
  try {
    action();
  } catch (ExceptionType const& e) {
    if (typeid(e) != typeid(ExceptionType)) {
      return ::testing::AssertionFailure() << "threw a subclass " << typeid(e).name()
                                           << " instead of " << typeid(ExceptionType).name();
    }
    if (message != e.what()) {
      return ::testing::AssertionFailure()
             << "message was \"" << e.what() << "\", expected \"" << message << "\"";
    }
    return ::testing::AssertionSuccess();
  } catch (std::exception const& e) {
    return ::testing::AssertionFailure() << "threw " << typeid(e).name() << " (" << e.what()
                                         << ") instead of " << typeid(ExceptionType).name();
  } catch (...) {
    return ::testing::AssertionFailure() << "threw something that is not a std::exception";
  }
  return ::testing::AssertionFailure()
         << "threw nothing; expected " << typeid(ExceptionType).name();
}

}  // namespace opcvk_test

#define EXPECT_THROW_MESSAGE(statement, ExceptionType, message) \
  EXPECT_TRUE(::opcvk_test::throwsWithMessage<ExceptionType>([&] { statement; }, (message)))

#endif  // TESTS_SUPPORT_EXPECT_EXCEPTION_H_

#pragma once

/* What the tests of the companion share. */

#include "support/fixture.h"

#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})

/* Takes the critical of a failed check of the companion. */
#define ASSERT_FAILED_CHECK(function, condition) \
  assert_logged("VEK:testing", G_LOG_LEVEL_CRITICAL, function ": assertion '" condition "' failed")

#define NOT_A_RECORDER "VEK_TESTING_IS_RECORDER(recorder)"

/* Calls a function with arguments that a check refuses: it returns FALSE or NULL. */
#define ASSERT_REFUSED(function, condition, arguments) \
  G_STMT_START {                                       \
    g_assert_false(function arguments);                \
    ASSERT_FAILED_CHECK(#function, condition);         \
  }                                                    \
  G_STMT_END

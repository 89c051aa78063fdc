#pragma once

/* What the tests of the companion share. */

#include <vekmetrics-testing/vekmetrics-testing.h>

#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})

/* Adds a test named after its function: "/group/its-words". */
#define ADD_TEST(group, test)                                                               \
  G_STMT_START {                                                                            \
    g_autofree char *path_of_test_ = g_strdelimit(g_strdup("/" group "/" #test), "_", '-'); \
    g_test_add_func(path_of_test_, test);                                                   \
  }                                                                                         \
  G_STMT_END

/* The critical of a failed check is to come. */
static inline void expect_refusal(const char *function, const char *condition) {
  g_autofree char *pattern = g_strdup_printf("%s: assertion '%s' failed", function, condition);
  g_test_expect_message("VEK:testing", G_LOG_LEVEL_CRITICAL, pattern);
}

/* Calls a function with arguments that its check refuses: it returns FALSE or NULL. */
#define ASSERT_REFUSED(function, condition, arguments) \
  G_STMT_START {                                       \
    expect_refusal(#function, condition);              \
    g_assert_false(function arguments);                \
    g_test_assert_expected_messages();                 \
  }                                                    \
  G_STMT_END

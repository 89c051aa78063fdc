#pragma once

/* Compares a type with a model of it over random histories.
 *
 * A test writes the model from what the type promises, much simpler than the type itself, and says
 * how to draw an operation and how to do it to both. The histories begin short and grow. One that
 * shows a difference is shortened as far as the difference lasts, and printed. */

#include <glib.h>

typedef struct {
  guint kind;    /* which operation; the test's own numbers */
  gint64 number; /* its arguments, as the kind needs them */
  gdouble value;
} ModelOperation;

typedef struct {
  /* Makes the object and its model and sets the clock. What is to vary between histories, such as
   * a property, is drawn here: a history that is run again meets the same numbers. */
  gpointer (*begin)(GRand *random);

  void (*draw)(GRand *random, ModelOperation *operation);

  /* Does the operation to both and compares them. Returns what differs, or NULL. */
  char *(*apply)(gpointer subject, const ModelOperation *operation);

  void (*end)(gpointer subject);

  /* The operation as the printed history shows it. */
  char *(*describe)(const ModelOperation *operation);
} ModelTest;

/* A number as a recorder shows it. */
char *describe_number(gdouble number);

/* Runs the histories in the folder fuzz/<program>, from which scripts/fuzz begins, and then random
 * ones of growing length, of at least so many operations together. The seed that GLib's test
 * framework prints repeats them. */
void model_test_run(const ModelTest *test, guint n_operations);

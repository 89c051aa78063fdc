#include "logcapture.h"

typedef struct {
  GLogLevelFlags level;
  char *domain;
  char *message;
  char *file;
  char *line;
  char *function;
} Record;

static GMutex lock; /* guards the queue */
static GQueue records = G_QUEUE_INIT;
static const char *debug_domain = "VEK:metrics";

static void record_free(gpointer data) {
  Record *record = data;
  g_free(record->domain);
  g_free(record->message);
  g_free(record->file);
  g_free(record->line);
  g_free(record->function);
  g_free(record);
}
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Record, record_free)

static char *get_field(const GLogField *fields, gsize n_fields, const char *key) {
  for (gsize i = 0; i < n_fields; i++) {
    const char *value = fields[i].value;
    if (g_str_equal(fields[i].key, key))
      return fields[i].length < 0 ? g_strdup(value) : g_strndup(value, fields[i].length);
  }
  return NULL;
}

/* Takes over the strings. */
static void keep(GLogLevelFlags level, char *domain, char *message, char *file, char *line,
                 char *function) {
  level &= G_LOG_LEVEL_MASK;
  /* Newer versions of GObject call critical what is a warning in older ones. */
  if (level == G_LOG_LEVEL_CRITICAL && g_strcmp0(domain, "GLib-GObject") == 0)
    level = G_LOG_LEVEL_WARNING;

  Record *record = g_new(Record, 1);
  *record = (Record){level, domain, message, file, line, function};

  /* What GLib notes while it works differs from machine to machine. */
  if (level & G_LOG_LEVEL_DEBUG && g_strcmp0(domain, debug_domain) != 0) {
    record_free(record);
    return;
  }

  g_mutex_lock(&lock);
  g_queue_push_tail(&records, record);
  g_mutex_unlock(&lock);
}

static GLogWriterOutput capture_structured(GLogLevelFlags level, const GLogField *fields,
                                           gsize n_fields, gpointer data) {
  if (level & G_LOG_LEVEL_ERROR)
    return g_log_writer_default(level, fields, n_fields, data);
  if (level & G_LOG_LEVEL_DEBUG && !debug_domain)
    return G_LOG_WRITER_HANDLED;

  keep(level, get_field(fields, n_fields, "GLIB_DOMAIN"), get_field(fields, n_fields, "MESSAGE"),
       get_field(fields, n_fields, "CODE_FILE"), get_field(fields, n_fields, "CODE_LINE"),
       get_field(fields, n_fields, "CODE_FUNC"));
  return G_LOG_WRITER_HANDLED;
}

static void capture_plain(const char *domain, GLogLevelFlags level, const char *message,
                          gpointer data) {
  if (level & G_LOG_LEVEL_ERROR)
    g_log_default_handler(domain, level, message, data);
  else
    keep(level, g_strdup(domain), g_strdup(message), NULL, NULL, NULL);
}

void log_capture_init(void) {
  g_log_set_writer_func(capture_structured, NULL, NULL);
  /* Newer versions of g_test_init() print plain messages, and the writer never sees them. */
  g_log_set_default_handler(capture_plain, NULL);
  g_log_set_always_fatal(G_LOG_FATAL_MASK);
}

void log_capture_set_debug_domain(const char *domain) {
  debug_domain = domain;
}

static Record *take(void) {
  g_mutex_lock(&lock);
  Record *record = g_queue_pop_head(&records);
  g_mutex_unlock(&lock);
  return record;
}

void assert_logged(const char *domain, GLogLevelFlags level, const char *message) {
  g_autoptr(Record) record = take();
  g_assert_nonnull(record);
  g_assert_cmpstr(record->message, ==, message);
  g_assert_cmpstr(record->domain, ==, domain);
  g_assert_cmphex(record->level, ==, level);
}

void assert_logged_like(const char *domain, GLogLevelFlags level, const char *pattern) {
  g_autoptr(Record) record = take();
  g_assert_nonnull(record);
  if (!g_pattern_match_simple(pattern, record->message))
    g_assert_cmpstr(record->message, ==, pattern);
  g_assert_cmpstr(record->domain, ==, domain);
  g_assert_cmphex(record->level, ==, level);
}

static void assert_source(const Record *record, const char *file, const char *function) {
  g_assert_cmpstr(record->domain, ==, "VEK:metrics");
  g_assert_cmpstr(record->file, ==, file);
  g_assert_cmpstr(record->function, ==, function);
  g_assert_nonnull(record->line);
  g_assert_cmpint(g_ascii_strtoll(record->line, NULL, 10), >, 0);
}

void assert_logged_from(const char *file, const char *function, GLogLevelFlags level,
                        const char *message) {
  g_autoptr(Record) record = take();
  g_assert_nonnull(record);
  g_assert_cmpstr(record->message, ==, message);
  g_assert_cmphex(record->level, ==, level);
  assert_source(record, file, function);
}

void assert_logged_from_like(const char *file, const char *function, GLogLevelFlags level,
                             const char *pattern) {
  g_autoptr(Record) record = take();
  g_assert_nonnull(record);
  if (!g_pattern_match_simple(pattern, record->message))
    g_assert_cmpstr(record->message, ==, pattern);
  g_assert_cmphex(record->level, ==, level);
  assert_source(record, file, function);
}

void assert_failed_check(const char *function, const char *condition) {
  g_autofree char *message = g_strdup_printf("%s: assertion '%s' failed", function, condition);
  assert_logged("VEK:metrics", G_LOG_LEVEL_CRITICAL, message);
}

void assert_nothing_logged(void) {
  g_autoptr(Record) record = take();
  g_assert_cmpstr(record ? record->message : NULL, ==, NULL);
}

char *log_capture_take(GLogLevelFlags *level) {
  g_autoptr(Record) record = take();
  if (!record)
    return NULL;
  *level = record->level;
  return g_steal_pointer(&record->message);
}

guint log_capture_get_n_waiting(void) {
  g_mutex_lock(&lock);
  guint n_waiting = g_queue_get_length(&records);
  g_mutex_unlock(&lock);
  return n_waiting;
}

#include "rawcalls.h"

#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

enum { MAX_CALLS = 8, MAX_DIMENSIONS = 20 };

/* In place of GLib's. */
gint64 g_get_real_time(void) {
  return RAW_TIME;
}

static GLogWriterOutput take_message(GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                                     gpointer data) {
  (void)data;
  if (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL))
    g_error("%s", g_log_writer_format_fields(level, fields, n_fields, FALSE));
  return G_LOG_WRITER_HANDLED;
}

static void free_call(gpointer data) {
  RawCall *call = data;
  g_free(call->name);
  g_strfreev(call->dimensions);
  g_free(call->unit);
  g_free(call);
}

/* Takes the bytes up to the next NUL or the end. */
static char *take_string(const guint8 **bytes, const guint8 *end) {
  const guint8 *start = *bytes;
  const guint8 *nul = start < end ? memchr(start, '\0', (gsize)(end - start)) : NULL;
  *bytes = nul ? nul + 1 : end;
  return g_strndup((const char *)start, (gsize)((nul ? nul : end) - start));
}

static RawCall *take_call(const guint8 **bytes, const guint8 *end) {
  static const char kinds[] = {'c', 'v', 'a', 't'};
  RawCall *call = g_new0(RawCall, 1);
  g_autofree char *options = take_string(bytes, end);
  for (gsize i = 0; i < G_N_ELEMENTS(kinds); i++)
    if (strchr(options, kinds[i]))
      call->kind = (RawKind)i;
  call->name = take_string(bytes, end);
  if (strchr(options, 'u'))
    call->unit = take_string(bytes, end);
  if (!strpbrk(options, "de"))
    return call;

  call->dimensions = g_new0(char *, MAX_DIMENSIONS + 1);
  guint n_dimensions = 0;
  for (const char *c = options; *c && n_dimensions < MAX_DIMENSIONS; c++)
    if (*c == 'd')
      call->dimensions[n_dimensions++] = take_string(bytes, end);
  return call;
}

GPtrArray *raw_calls_new(const guint8 *bytes, gsize size) {
  static gboolean has_begun;
  if (!has_begun)
    g_log_set_writer_func(take_message, NULL, NULL);
  has_begun = TRUE;

  GPtrArray *calls = g_ptr_array_new_with_free_func(free_call);
  for (const guint8 *end = bytes + size; bytes < end && calls->len < MAX_CALLS;)
    g_ptr_array_add(calls, take_call(&bytes, end));
  return calls;
}

static void report(const RawCall *call, VekMetricReporter *reporter) {
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  static const gdouble sample = 1.5;
  VekMetricRange range = {1, 2, 3};
  GSList ranges = {&range, NULL};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(&sample, 1);
  switch (call->kind) {
  case RAW_COUNT:
    if (iface->process_count)
      iface->process_count(reporter, call->name, call->dimensions, call->unit, RAW_TIME, 42);
    break;
  case RAW_VALUE:
    if (iface->process_value)
      iface->process_value(reporter, call->name, call->dimensions, call->unit, RAW_TIME, 0.5);
    break;
  case RAW_AGGREGATED:
    if (iface->process_aggregated)
      iface->process_aggregated(reporter, call->name, call->dimensions, call->unit, snapshot);
    break;
  case RAW_TIMELINE:
    if (iface->process_timeline_samples)
      iface->process_timeline_samples(reporter, call->name, &ranges);
    break;
  }
}

void raw_calls_report(GPtrArray *calls, VekMetricReporter *reporter) {
  for (guint i = 0; i < calls->len; i++)
    report(calls->pdata[i], reporter);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

struct _RawSink {
  int listener;
  int connection; /* -1 until there is one */
  guint port;
};

RawSink *raw_sink_new(void) {
  RawSink *sink = g_new(RawSink, 1);
  sink->listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sink->connection = -1;
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  socklen_t size = sizeof address;
  g_assert_cmpint(bind(sink->listener, (struct sockaddr *)&address, size), ==, 0);
  g_assert_cmpint(listen(sink->listener, 1), ==, 0);
  g_assert_cmpint(getsockname(sink->listener, (struct sockaddr *)&address, &size), ==, 0);
  sink->port = ntohs(address.sin_port);
  return sink;
}

guint raw_sink_get_port(RawSink *sink) {
  return sink->port;
}

char *raw_sink_receive(RawSink *sink, VekMetricReporter *reporter) {
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  iface->process_count(reporter, "end", NULL, NULL, RAW_TIME, 0);
  g_autoptr(GString) text = g_string_new(NULL);
  while (!g_str_has_suffix(text->str, "end 0 " RAW_SECONDS "\n")) {
    iface->flush(reporter); /* without effect until there is a connection */
    g_main_context_iteration(NULL, FALSE);
    if (sink->connection < 0)
      sink->connection = accept4(sink->listener, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
    char buffer[4096];
    gssize n = recv(sink->connection, buffer, sizeof buffer, 0);
    if (n > 0)
      g_string_append_len(text, buffer, n);
  }
  g_string_truncate(text, text->len - strlen("end 0 " RAW_SECONDS "\n"));
  return g_string_free(g_steal_pointer(&text), FALSE);
}

static gunichar take_unicode(const char **c) {
  gunichar character = 0;
  for (int i = 0; i < 4; i++) {
    g_assert_true(g_ascii_isxdigit(**c));
    character = character * 16 + (gunichar)g_ascii_xdigit_value(*(*c)++);
  }
  g_assert_true(character > 0 && (character < 0xd800 || character > 0xdfff));
  return character;
}

static const char *decode_escape(const char *c, GString *decoded) {
  static const char escapes[] = "\"\\/bfnrt";
  static const char meanings[] = "\"\\/\b\f\n\r\t";
  if (*c == 'u') {
    c++;
    g_string_append_unichar(decoded, take_unicode(&c));
    return c;
  }
  g_assert_true(*c != '\0' && strchr(escapes, *c));
  g_string_append_c(decoded, meanings[strchr(escapes, *c) - escapes]);
  return c + 1;
}

/* Decodes what follows a quotation mark, up to the next one. */
static const char *decode_string(const char *c, GString *decoded) {
  while (*c != '"') {
    g_assert_cmpint((guchar)*c, >=, ' ');
    if (*c == '\\')
      c = decode_escape(c + 1, decoded);
    else
      g_string_append_c(decoded, *c++);
  }
  return c + 1;
}

char *raw_json_decode(const char *text) {
  g_assert_true(g_utf8_validate(text, -1, NULL));
  GString *decoded = g_string_new(NULL);
  for (const char *c = text; *c;) {
    if (*c != '"') {
      g_string_append_c(decoded, *c++);
      continue;
    }
    g_string_append(decoded, "\"<");
    c = decode_string(c + 1, decoded);
    g_string_append(decoded, ">\"");
  }
  return g_string_free(decoded, FALSE);
}

char *raw_json_string(const char *string) {
  g_autofree char *valid = g_utf8_make_valid(string, -1);
  return g_strdup_printf("\"<%s>\"", valid);
}

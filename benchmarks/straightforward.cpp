#define G_LOG_DOMAIN "benchmark"
#define G_LOG_USE_STRUCTURED

#include "straightforward.hpp"

#include <gio/gio.h>
#include <json-glib/json-glib.h>

#include <cstdio>
#include <cstring>

namespace {

// What the four reporters have in common: they are objects of this type, each with operations of
// its own.
struct Operations {
  void (*process_count)(gpointer state, const char *name, char **dimensions, const char *unit,
                        gint64 timestamp, gint64 count);
  void (*flush)(gpointer state);
};

struct PlainReporter {
  GObject parent_instance;
  const Operations *operations;
  gpointer state;
};
struct PlainReporterClass {
  GObjectClass parent_class;
};

void plain_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                  gchar **dimensions, const gchar *unit, gint64 timestamp,
                                  gint64 count) {
  auto *self = reinterpret_cast<PlainReporter *>(reporter);
  self->operations->process_count(self->state, name, dimensions, unit, timestamp, count);
}

void plain_reporter_flush(VekMetricReporter *reporter) {
  auto *self = reinterpret_cast<PlainReporter *>(reporter);
  self->operations->flush(self->state);
}

void plain_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = plain_reporter_process_count;
  iface->flush = plain_reporter_flush;
}

G_DEFINE_TYPE_WITH_CODE(PlainReporter, plain_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              plain_reporter_reporter_init))
void plain_reporter_class_init(PlainReporterClass *) {}
void plain_reporter_init(PlainReporter *) {}

VekMetricReporter *reporter_new(const Operations *operations, gpointer state) {
  auto *self = static_cast<PlainReporter *>(g_object_new(plain_reporter_get_type(), nullptr));
  self->operations = operations;
  self->state = state;
  return VEK_METRIC_REPORTER(self);
}

// Console.

struct Section {
  char **dimensions;
  GPtrArray *lines;
};

struct Line {
  char *name;
  char *text;
};

void free_line(gpointer data) {
  auto *line = static_cast<Line *>(data);
  g_free(line->name);
  g_free(line->text);
  g_slice_free(Line, line);
}

void free_section(gpointer data) {
  auto *section = static_cast<Section *>(data);
  g_strfreev(section->dimensions);
  g_ptr_array_unref(section->lines);
  g_slice_free(Section, section);
}

char *section_key(char **dimensions) {
  return dimensions ? g_strjoinv(".", dimensions) : g_strdup("general");
}

void console_process_count(gpointer state, const char *name, char **dimensions, const char *,
                           gint64, gint64 count) {
  auto *sections = static_cast<GHashTable *>(state);
  char *key = section_key(dimensions);
  auto *section = static_cast<Section *>(g_hash_table_lookup(sections, key));
  if (section) {
    g_free(key);
  } else {
    section = g_slice_new(Section);
    *section = {g_strdupv(dimensions), g_ptr_array_new_with_free_func(free_line)};
    g_hash_table_insert(sections, key, section);
  }
  auto *line = g_slice_new(Line);
  *line = {g_strdup(name), g_strdup_printf("%lli", static_cast<long long>(count))};
  g_ptr_array_add(section->lines, line);
}

int compare_sections(gconstpointer a, gconstpointer b) {
  auto *left = static_cast<const Section *>(a)->dimensions;
  auto *right = static_cast<const Section *>(b)->dimensions;
  guint left_length = left ? g_strv_length(left) : 0;
  guint right_length = right ? g_strv_length(right) : 0;
  if (left_length != right_length)
    return left_length < right_length ? -1 : 1;
  g_autofree char *left_key = section_key(left);
  g_autofree char *right_key = section_key(right);
  return strcmp(left_key, right_key);
}

int compare_lines(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<Line *const *>(a))->name, (*static_cast<Line *const *>(b))->name);
}

void print_section(gpointer data, gpointer) {
  auto *section = static_cast<Section *>(data);
  const char *prefix = "";
  for (char **pair = section->dimensions; pair && pair[0] && pair[1]; pair += 2) {
    g_print("%s%s=%s", prefix, pair[0], pair[1]);
    prefix = ", ";
  }
  g_print(":\n");
  g_ptr_array_sort(section->lines, compare_lines);
  for (guint i = 0; i < section->lines->len; i++) {
    auto *line = static_cast<Line *>(section->lines->pdata[i]);
    g_print("%s: %s\n", line->name, line->text);
  }
  g_print("\n");
}

void console_flush(gpointer state) {
  auto *sections = static_cast<GHashTable *>(state);
  GList *list = g_list_sort(g_hash_table_get_values(sections), compare_sections);
  g_list_foreach(list, print_section, nullptr);
  g_list_free(list);
  g_hash_table_remove_all(sections);
}

const Operations console = {console_process_count, console_flush};

// CSV.

void csv_process_count(gpointer state, const char *name, char **dimensions, const char *,
                       gint64 timestamp, gint64 count) {
  g_autoptr(GString) joined = g_string_new(nullptr);
  char separator = '=';
  for (char **string = dimensions; string && *string; string++) {
    g_string_append(joined, *string);
    g_string_append_c(joined, separator);
    separator = separator == '=' ? ';' : '=';
  }
  char text[128];
  g_snprintf(text, sizeof text, "%lli", static_cast<long long>(count));
  fprintf(static_cast<FILE *>(state), "%lli,%s,%s,%s,%s,%s,%s,%s,%s,%s\n",
          static_cast<long long>(timestamp), name, joined->str, text, "", "", "", "", "", "");
}

void csv_flush(gpointer state) {
  fflush(static_cast<FILE *>(state));
}

const Operations csv = {csv_process_count, csv_flush};

// JSON.

struct Json {
  GPtrArray *data;
  GOutputStream *stream;
};

void unref_dimension(gpointer dimension) {
  vek_metric_dimension_unref(static_cast<VekMetricDimension *>(dimension));
}

void unref_datum(gpointer datum) {
  vek_metric_datum_unref(static_cast<VekMetricDatum *>(datum));
}

const char *const known_units[] = {"Seconds",   "Microseconds", "Milliseconds", "Bytes",
                                   "Kilobytes", "Megabytes",    "Gigabytes",    "Terabytes",
                                   "Bits",      "Kilobits",     "Megabits",     "Gigabits",
                                   "Terabits",  "Percent",      "Count",        nullptr};

void json_process_count(gpointer state, const char *name, char **dimensions, const char *unit,
                        gint64 timestamp, gint64 count) {
  auto *self = static_cast<Json *>(state);
  g_autoptr(GPtrArray) list = g_ptr_array_new_with_free_func(unref_dimension);
  for (char **pair = dimensions; pair && pair[0] && pair[1]; pair += 2)
    g_ptr_array_add(list, vek_metric_dimension_new(pair[0], pair[1]));
  auto *datum = vek_metric_datum_new(name);
  if (list->len > 0)
    vek_metric_datum_set_dimensions(datum, reinterpret_cast<VekMetricDimension **>(list->pdata),
                                    list->len);
  vek_metric_datum_set_timestamp(datum, timestamp);
  if (unit && g_strv_contains(known_units, unit))
    vek_metric_datum_set_unit(datum, unit);
  vek_metric_datum_set_value(datum, static_cast<gdouble>(count));
  if (!self->data)
    self->data = g_ptr_array_new_with_free_func(unref_datum);
  g_ptr_array_add(self->data, datum);
}

void add_string(JsonBuilder *builder, const char *member, const char *value) {
  json_builder_set_member_name(builder, member);
  json_builder_add_string_value(builder, value);
}

void on_written(GObject *source, GAsyncResult *result, gpointer line) {
  g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, nullptr, nullptr);
  g_free(line);
}

void json_flush(gpointer state) {
  auto *self = static_cast<Json *>(state);
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_array(builder);
  for (guint i = 0; i < self->data->len; i++) {
    auto *datum = static_cast<VekMetricDatum *>(self->data->pdata[i]);
    json_builder_begin_object(builder);
    add_string(builder, "MetricName", vek_metric_datum_get_metric_name(datum));
    g_autoptr(GDateTime) date =
        g_date_time_new_from_unix_utc(vek_metric_datum_get_timestamp(datum) / G_USEC_PER_SEC);
    g_autofree char *text = g_date_time_format_iso8601(date);
    add_string(builder, "Timestamp", text);
    if (const char *unit = vek_metric_datum_get_unit(datum))
      add_string(builder, "Unit", unit);
    json_builder_set_member_name(builder, "Value");
    json_builder_add_double_value(builder, vek_metric_datum_get_value(datum));
    guint n_dimensions;
    VekMetricDimension **dimensions = vek_metric_datum_get_dimensions(datum, &n_dimensions);
    if (n_dimensions > 0) {
      json_builder_set_member_name(builder, "Dimensions");
      json_builder_begin_array(builder);
      for (guint j = 0; j < n_dimensions; j++) {
        json_builder_begin_object(builder);
        add_string(builder, "Name", vek_metric_dimension_get_name(dimensions[j]));
        add_string(builder, "Value", vek_metric_dimension_get_value(dimensions[j]));
        json_builder_end_object(builder);
      }
      json_builder_end_array(builder);
    }
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);
  g_clear_pointer(&self->data, g_ptr_array_unref);

  g_autoptr(JsonNode) root = json_builder_get_root(builder);
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_root(generator, root);
  g_autofree char *json = json_generator_to_data(generator, nullptr);
  g_autoptr(GDateTime) now = g_date_time_new_now_utc();
  g_autofree char *time = g_date_time_format(now, "%F %T");
  char *line = g_strdup_printf("%s,%06d %s\n", time, g_date_time_get_microsecond(now), json);
  g_output_stream_write_all_async(self->stream, line, strlen(line), G_PRIORITY_DEFAULT, nullptr,
                                  on_written, line);
}

const Operations json = {json_process_count, json_flush};

// Carbon.

struct Carbon {
  GSocketConnection *connection;
  GCancellable *cancellable;
  GQueue *lines;
  bool busy;
};

struct Write {
  GObject *owner;
  Carbon *reporter;
  char *line;
};

void carbon_process_count(gpointer state, const char *name, char **dimensions, const char *unit,
                          gint64 timestamp, gint64 count) {
  auto *self = static_cast<Carbon *>(state);
  g_autoptr(GString) key = g_string_new(nullptr);
  if (dimensions) {
    g_autofree char *joined = g_strjoinv(".", dimensions);
    g_string_append(key, joined);
    g_string_append_c(key, '.');
  }
  if (unit) {
    g_string_append(key, unit);
    g_string_append_c(key, '.');
  }
  g_string_append(key, name);
  g_queue_push_tail(self->lines,
                    g_strdup_printf("%s %lli %lli\n", key->str, static_cast<long long>(count),
                                    static_cast<long long>(timestamp / G_USEC_PER_SEC)));
}

void carbon_flush(gpointer state);

void on_sent(GObject *source, GAsyncResult *result, gpointer data) {
  auto *write = static_cast<Write *>(data);
  gsize bytes_written;
  g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, &bytes_written, nullptr);
  g_debug("Write operation succeeded (bytes_written: %lu)", bytes_written);
  auto *self = write->reporter;
  self->busy = false;
  carbon_flush(self);
  g_object_unref(write->owner);
  g_free(write->line);
  g_free(write);
}

void carbon_flush(gpointer state) {
  auto *self = static_cast<Carbon *>(state);
  auto *line = self->busy ? nullptr : static_cast<char *>(g_queue_pop_head(self->lines));
  if (!line)
    return;
  self->busy = true;
  g_debug("Sending message: %s", line);
  auto *write = g_new(Write, 1);
  *write = {G_OBJECT(g_object_ref(self->connection)), self, line};
  g_output_stream_write_all_async(g_io_stream_get_output_stream(G_IO_STREAM(self->connection)),
                                  line, strlen(line), G_PRIORITY_DEFAULT, self->cancellable,
                                  on_sent, write);
}

const Operations carbon = {carbon_process_count, carbon_flush};

}  // namespace

namespace straightforward {

VekMetricReporter *console_reporter_new() {
  return reporter_new(&console,
                      g_hash_table_new_full(g_str_hash, g_str_equal, g_free, free_section));
}

VekMetricReporter *csv_reporter_new(const char *basename, const char *dirname) {
  g_autofree char *path = g_strdup_printf("%s/%s.csv", dirname, basename);
  return reporter_new(&csv, fopen(path, "a"));
}

VekMetricReporter *json_reporter_new(const char *basename, const char *dirname) {
  g_autofree char *path = g_strdup_printf("%s/%s.json", dirname, basename);
  g_autoptr(GFile) file = g_file_new_for_path(path);
  auto *stream = g_file_append_to(file, G_FILE_CREATE_NONE, nullptr, nullptr);
  return reporter_new(&json, new Json{nullptr, G_OUTPUT_STREAM(stream)});
}

VekMetricReporter *carbon_reporter_new(const char *address, guint port) {
  g_autoptr(GSocketClient) client = g_socket_client_new();
  auto *connection = g_socket_client_connect_to_host(client, address, static_cast<guint16>(port),
                                                     nullptr, nullptr);
  return reporter_new(&carbon, new Carbon{connection, g_cancellable_new(), g_queue_new(), false});
}

void Registry::add(VekMetricCounter *counter) {
  auto *metric = VEK_METRIC(counter);
  g_autofree char *joined = g_strjoinv(".", vek_metric_get_dimensions(metric));
  g_hash_table_insert(metrics, g_strconcat(joined, ".", vek_metric_get_name(metric), nullptr),
                      g_object_ref(metric));
}

static void report_counter(VekMetricCounter *counter, GSList *reporters) {
  auto *metric = VEK_METRIC(counter);
  const char *name = vek_metric_get_name(metric);
  char **dimensions = vek_metric_get_dimensions(metric);
  const char *unit = vek_metric_get_unit(metric);
  gint64 time = vek_metric_counter_get_time(counter);
  gint64 count = vek_metric_counter_get_count(counter);
  for (GSList *node = reporters; node; node = node->next) {
    auto *reporter = static_cast<VekMetricReporter *>(node->data);
    auto *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
    if (iface->process_count)
      iface->process_count(reporter, name, dimensions, unit, time, count);
  }
}

static void report_metric(gpointer, gpointer value, gpointer reporters) {
  g_return_if_fail(VEK_IS_METRIC(value));
  auto *metric = VEK_METRIC(value);
  if (!vek_metric_is_active(metric))
    return;
  report_counter(VEK_METRIC_COUNTER(metric), static_cast<GSList *>(reporters));
  if (G_OBJECT(metric)->ref_count == 1)
    vek_metric_mark_inactive(metric);
}

void Registry::report(VekMetricReporter *reporter) {
  GSList *reporters = g_slist_prepend(nullptr, g_object_ref(reporter));
  g_rw_lock_reader_lock(&lock);
  g_hash_table_foreach(metrics, report_metric, reporters);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
  g_rw_lock_reader_unlock(&lock);
  g_slist_free_full(reporters, g_object_unref);
}

}  // namespace straightforward

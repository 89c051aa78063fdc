#include "csvfile.hpp"

#include "common/internal.hpp"

enum : guint { PROP_DIRNAME = 1, PROP_BASENAME };

static_assert(vekin::ZeroFillable<vekin::CsvFile>);

void vekin::CsvFile::install_properties(GObjectClass *object_class) {
  g_object_class_install_property(object_class, PROP_DIRNAME,
                                  vekin::property<g_param_spec_string>("dirname", nullptr));
  g_object_class_install_property(object_class, PROP_BASENAME,
                                  vekin::property<g_param_spec_string>("basename", nullptr));
}

void vekin::CsvFile::set_property(GObject *object, guint id, const GValue *value,
                                  GParamSpec *pspec) {
  switch (id) {
  case PROP_DIRNAME: dirname = g_value_dup_string(value); break;
  case PROP_BASENAME: basename = g_value_dup_string(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

void vekin::CsvFile::get_property(GObject *object, guint id, GValue *value,
                                  GParamSpec *pspec) const {
  switch (id) {
  case PROP_DIRNAME: g_value_set_string(value, dirname); break;
  case PROP_BASENAME: g_value_set_string(value, basename); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

bool vekin::CsvFile::open() {
  if (!basename || !dirname)
    return true;
  if (g_mkdir_with_parents(dirname, 0755) != 0)
    return false;

  g_autofree char *name = g_strdup_printf("%s.csv", basename);
  g_autofree char *path = g_build_filename(dirname, name, nullptr);
  file = fopen(path, "a");
  if (!file)
    fprintf(stderr, "Cannot open log file \"%s\".\n", path);
  return true;
}

void vekin::CsvFile::flush() {
  if (file)
    fflush(file);
}

void vekin::CsvFile::close() {
  g_free(basename);
  g_free(dirname);
  g_clear_pointer(&file, fclose);
}

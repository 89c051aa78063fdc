#pragma once

#include <glib-object.h>

#include <stdio.h>

namespace vekin {

// The file of the CSV log and the timeline reporter: "<basename>.csv" in a directory, opened once,
// at construction, and only appended to. Both reporters keep one behind their GObject instance and
// have its two properties; they share all but the message when the directory cannot be made.
struct CsvFile {
  char *basename;
  char *dirname;
  FILE *file;  // NULL when nothing could be opened: then nothing is written

  static void install_properties(GObjectClass *object_class);
  void set_property(GObject *object, guint id, const GValue *value, GParamSpec *pspec);
  void get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec) const;

  // Opens the file, if both its names are given. Returns false, with errno set, if the directory
  // cannot be made: what to print then is the reporter's own. If the file itself cannot be opened,
  // that is printed here.
  bool open();
  void flush();
  void close();
};

}  // namespace vekin

baseURLs = [
  ['Gio', 'https://docs.gtk.org/gio/'],
  ['GLib', 'https://docs.gtk.org/glib/'],
  ['GObject', 'https://docs.gtk.org/gobject/'],
  ['Soup', 'https://libsoup.org/libsoup-3.0/'],
  ['Vek', '../vek-1.0/'],
  ['VekService', '../vekservice-1.0/'],
  ['VekTesting', '../vektesting-1.0/'],
  ['VekWeb', '../vekweb-1.0/'],
];

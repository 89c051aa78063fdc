#include "served.h"
#include "support/heap.h"
#include "support/replace.h"

#include <errno.h>
#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <string.h>
#include <sys/stat.h>

static const char *failing; /* the function below that fails */
static GIOErrorEnum failure = G_IO_ERROR_FAILED;

static gboolean fails(const char *function, GError **error) {
  if (g_strcmp0(failing, function) != 0)
    return FALSE;
  g_set_error(error, G_IO_ERROR, failure, "no %s", function);
  return TRUE;
}

/* In place of the functions of GIO and the C library, which they call. */

GSocket *g_socket_new(GSocketFamily family, GSocketType type, GSocketProtocol protocol,
                      GError **error) {
  return fails("socket", error) ? NULL : NEXT(g_socket_new)(family, type, protocol, error);
}

gboolean g_socket_listen(GSocket *socket, GError **error) {
  return !fails("listen", error) && NEXT(g_socket_listen)(socket, error);
}

GSocket *g_socket_accept(GSocket *socket, GCancellable *cancellable, GError **error) {
  g_assert_false(g_socket_get_blocking(socket)); /* or the main loop might stand still */
  return fails("accept", error) ? NULL : NEXT(g_socket_accept)(socket, cancellable, error);
}

GSocketAddress *g_socket_get_local_address(GSocket *socket, GError **error) {
  return fails("local address", error) ? NULL : NEXT(g_socket_get_local_address)(socket, error);
}

GSocketAddress *g_socket_get_remote_address(GSocket *socket, GError **error) {
  return fails("remote address", error) ? NULL : NEXT(g_socket_get_remote_address)(socket, error);
}

int fchmod(int fd, mode_t mode) {
  if (!fails("fchmod", NULL))
    return NEXT(fchmod)(fd, mode);
  errno = EIO;
  return -1;
}

static guint interval; /* of the last source, in milliseconds */

GSource *g_timeout_source_new(guint milliseconds) {
  interval = milliseconds;
  return NEXT(g_timeout_source_new)(milliseconds);
}

static void assert_answers(Served *served) {
  assert_status(served, "GET /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK");
}

static void retry(void) {
  GSource *source = find_source("vekmetrics-web retry");
  g_assert_nonnull(source);
  g_source_set_ready_time(source, 0);
  settle();
}

TEST(connection_that_cannot_be_accepted_is_accepted_later) {
  g_auto(Served) served = set_up_listening(1);
  for (guint i = 0; i < 2; i++) {
    failing = "accept";
    g_autoptr(GSocket) socket = connect_to(&served);
    assert_logged("VEK:web", G_LOG_LEVEL_WARNING, "Could not accept a connection: no accept");
    g_assert_cmpuint(interval, ==, 1000);
    retry(); /* in vain, and logged no more */
    failing = NULL;
    retry();
    static const char request[] = "GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n";
    g_assert_cmpint(g_socket_send(socket, request, strlen(request), NULL, NULL), ==,
                    strlen(request));
    settle();
    char answer[64];
    g_assert_cmpint(g_socket_receive(socket, answer, sizeof answer, NULL, NULL), >, 15);
    g_assert_cmpint(memcmp(answer, "HTTP/1.0 200 OK", 15), ==, 0);
    assert_answers(&served);
  }
}

TEST(trying_again_leaves_nothing) {
  g_auto(Served) served = set_up_listening(1);
  failing = "accept";
  g_autoptr(GSocket) socket = connect_to(&served);
  assert_logged("VEK:web", G_LOG_LEVEL_WARNING, "Could not accept a connection: no accept");
  gsize used = 0;
  for (int i = 0; i < 200; i++) {
    if (i == 100)
      used = heap_get_used();
    retry();
  }
  g_assert_cmpuint(heap_get_used(), <, used + 100 * 50);
  failing = NULL;
}

TEST(connection_that_has_gone_is_no_failure) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocketAddress) address = get_address(&served);
  g_autoptr(GSocket) socket =
      g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_TCP, NULL);
  failing = "accept";
  failure = G_IO_ERROR_WOULD_BLOCK;
  g_assert_true(g_socket_connect(socket, address, NULL, NULL));
  g_assert_true(g_main_context_iteration(NULL, FALSE));
  failing = NULL;
  failure = G_IO_ERROR_FAILED;
  g_assert_null(find_source("vekmetrics-web retry"));
  assert_answers(&served);
}

TEST(server_can_be_freed_while_it_cannot_accept) {
  Served served = set_up_listening(1);
  failing = "accept";
  g_autoptr(GSocket) socket = connect_to(&served);
  assert_logged("VEK:web", G_LOG_LEVEL_WARNING, "Could not accept a connection: no accept");
  failing = NULL;
  tear_down(&served);
  g_assert_null(find_source("vekmetrics-web retry"));
}

TEST(connection_without_an_address_is_closed) {
  g_auto(Served) served = set_up_listening(1);
  static const char *const functions[] = {"local address", "remote address"};
  for (guint i = 0; i < G_N_ELEMENTS(functions); i++) {
    failing = functions[i];
    g_autoptr(GSocket) socket = connect_to(&served);
    failing = NULL;
    g_assert_true(has_ended(socket));
    assert_answers(&served);
  }
}

TEST(whatever_keeps_it_from_listening_is_an_error) {
  g_auto(Served) served = set_up();
  static const char *const functions[] = {"socket", "fchmod", "listen", "local address"};
  for (guint i = 0; i < G_N_ELEMENTS(functions); i++) {
    failing = functions[i];
    g_autoptr(GError) error = NULL;
    g_assert_false(vek_web_server_listen(served.server, NULL, 0, &error));
    failing = NULL;
    g_assert_nonnull(error);
    g_assert_cmpuint(vek_web_server_get_port(served.server), ==, 0);
  }
  listen_locally(&served);
  pass(&served, 1);
  assert_answers(&served);
}

TEST(path_that_no_socket_can_have_is_an_error) {
  g_auto(Served) served = set_up();
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *long_path = g_strdup_printf("%s/%0*d", folder, 107 - (int)strlen(folder), 0);
  g_assert_cmpuint(strlen(long_path), ==, 108);
  const char *const paths[] = {"", long_path};
  for (guint i = 0; i < G_N_ELEMENTS(paths); i++) {
    g_autoptr(GError) error = NULL;
    g_assert_false(vek_web_server_listen_unix(served.server, paths[i], &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT);
    g_assert_cmpstr(error->message, ==, "The path of a socket has 1 to 107 bytes");
  }
  long_path[107] = '\0';
  g_assert_true(vek_web_server_listen_unix(served.server, long_path, NULL));
  g_assert_true(g_file_test(long_path, G_FILE_TEST_EXISTS));
  run_dispose(served.server);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(file_that_has_taken_the_place_of_the_socket_is_kept) {
  g_auto(Served) first = set_up();
  g_auto(Served) second = set_up();
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *path = g_build_filename(folder, "metrics", NULL);
  g_assert_true(vek_web_server_listen_unix(first.server, path, NULL));
  g_assert_cmpint(g_unlink(path), ==, 0);
  g_assert_true(vek_web_server_listen_unix(second.server, path, NULL));
  run_dispose(first.server);
  g_assert_true(g_file_test(path, G_FILE_TEST_EXISTS));
  g_assert_cmpint(g_unlink(path), ==, 0);
  run_dispose(second.server);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(socket_goes_although_the_program_has_changed_its_folder) {
  g_auto(Served) served = set_up();
  g_autofree char *before = g_get_current_dir();
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_assert_cmpint(g_chdir(folder), ==, 0);
  g_assert_true(vek_web_server_listen_unix(served.server, "metrics", NULL));
  g_assert_cmpint(g_chdir(before), ==, 0);
  run_dispose(served.server);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(socket_that_takes_no_connections_is_kept) {
  g_auto(Served) served = set_up();
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *path = g_build_filename(folder, "metrics", NULL);
  g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
  g_autoptr(GSocket) socket =
      g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_bind(socket, address, FALSE, NULL));
  g_autoptr(GError) error = NULL;
  g_assert_false(vek_web_server_listen_unix(served.server, path, &error));
  g_assert_error(error, G_IO_ERROR, G_IO_ERROR_ADDRESS_IN_USE);

  g_clear_error(&error);
  failing = "socket";
  g_assert_false(vek_web_server_listen_unix(served.server, path, &error));
  failing = NULL;
  g_assert_cmpstr(error->message, ==, "no socket");
  g_assert_cmpint(g_unlink(path), ==, 0);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

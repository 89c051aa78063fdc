#pragma once

#include <gio/gio.h>
#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_SESSION (vek_service_session_get_type())

/**
 * VekServiceSession:
 *
 * Reports the metrics of a program until the program ends.
 *
 * A session owns the reporters of a program. It passes each report pass of its registry to all of
 * them, adds passes of its own if 60 seconds are too long, and reports the last figures when the
 * program ends:
 *
 * ```c
 * g_autoptr(VekServiceSession) session = vek_service_session_new(NULL);
 * vek_service_session_add_reporter(session, vek_metric_console_reporter_new());
 *
 * g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
 * vek_service_session_run(session, loop, 5000);
 * ```
 *
 * In a pass each metric reports to all reporters, in the order in which they were added. A pass
 * consumes what it reports: the ranges of a timeline, the end of a gauge's interval, the last
 * report of a metric. Therefore a registry has only one session, and a reporter that is registered
 * with the registry itself misses what the session's own passes consume.
 *
 * The session's own passes do not retire metrics: a metric that the program has released gets its
 * last report from a periodic pass of the registry. Updates of a metric while it is being retired
 * are not lost if the metric comes from its constructor. [method@Vek.MetricRegistry.get_metric] can
 * return a metric that is no longer reported.
 *
 * Call [method@Session.report] and the functions that finish the session on the thread that runs
 * the default main context, which also runs the passes. Reporters may be added and removed on any
 * thread.
 *
 * A session that is freed without being finished ends silently: it runs no last pass, does not
 * wait, and releases its reporters.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekServiceSession, vek_service_session, VEK_SERVICE, SESSION, GObject)

/**
 * VekServiceSession:period:
 *
 * The longest time between two passes, in seconds, from 1 to 60.
 *
 * The registry runs a pass every 60 seconds. Below 60, the session adds passes of its own. Timers
 * of whole seconds may be a second late. The property can be set at any time, on any thread. For a
 * value out of range, GObject logs a warning, and nothing changes.
 */

/**
 * VekServiceSession:registry:
 *
 * The registry whose metrics are reported; %NULL once the session is over.
 */

/**
 * vek_service_session_new:
 * @registry: (nullable): a registry; %NULL for the default one
 *
 * Starts a session, and with it the periodic passes of the registry.
 *
 * A registry has one session at a time: creating a second one is a failed check.
 *
 * Returns: (transfer full) (nullable): a new session without reporters; %NULL after a failed check
 */
VEK_EXPORT
VekServiceSession *vek_service_session_new(VekMetricRegistry *registry);

/**
 * vek_service_session_add_reporter:
 * @session: a session
 * @reporter: (transfer full): a reporter
 *
 * Passes all later passes to the reporter as well. A pass that is under way does not reach it.
 *
 * The session takes ownership of the reporter, also after a failed check. Adding a reporter again
 * changes nothing. Once the session is over, this is a failed check. Any thread may call it.
 *
 * Release all other references to a carbon or a JSON log reporter before the session finishes: the
 * session knows by the reference count whether these are done.
 */
VEK_EXPORT
void vek_service_session_add_reporter(VekServiceSession *session, VekMetricReporter *reporter);

/**
 * vek_service_session_remove_reporter:
 * @session: a session
 * @reporter: a reporter
 *
 * Removes and releases a reporter. A pass that is under way still reaches it. Any thread may call
 * this.
 *
 * Returns: whether the session had the reporter; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_service_session_remove_reporter(VekServiceSession *session,
                                             VekMetricReporter *reporter);

/**
 * vek_service_session_report:
 * @session: a session
 *
 * Runs one pass for all reporters at once.
 *
 * This is a failed check on any thread other than that of the default main context, within a pass,
 * and once the session is over.
 */
VEK_EXPORT
void vek_service_session_report(VekServiceSession *session);

/**
 * vek_service_session_finish:
 * @session: a session
 * @timeout_ms: how long to wait at most, in milliseconds
 *
 * Runs one last pass for all reporters, ends the session, and runs the default main context until
 * no reporter has anything under way.
 *
 * A connection attempt counts as under way, and so does what is sent through the connection. If a
 * reporter is not done in time, a warning names its type. Its operations continue if the main loop
 * keeps running.
 *
 * The session is over as soon as the last pass is. From then on it takes no passes from the
 * registry, which lives on. A second call waits as long as the first one and returns the same
 * result.
 *
 * This is a failed check on any thread other than that of the default main context, and within a
 * pass.
 *
 * Returns: %TRUE if nothing is under way any more, which does not mean that everything was written:
 *   the reporters log warnings of failures; %FALSE after the timeout, if the wait was cancelled,
 *   and after a failed check
 */
VEK_EXPORT
gboolean vek_service_session_finish(VekServiceSession *session, guint timeout_ms);

/**
 * vek_service_session_finish_async:
 * @session: a session
 * @timeout_ms: how long to wait at most, in milliseconds
 * @cancellable: (nullable): ends the wait, for every caller that waits for the session
 * @callback: (scope async) (closure user_data): called when the wait has ended
 * @user_data: data for @callback
 *
 * Does the same as [method@Session.finish], but leaves running the main context to the program.
 *
 * The last pass is over when this returns. Cancelling only ends the wait.
 */
VEK_EXPORT
void vek_service_session_finish_async(VekServiceSession *session, guint timeout_ms,
                                      GCancellable *cancellable, GAsyncReadyCallback callback,
                                      gpointer user_data);

/**
 * vek_service_session_finish_finish:
 * @session: a session
 * @result: the result that the callback received
 * @error: return location for an error, or %NULL
 *
 * Gets the result of [method@Session.finish_async].
 *
 * Returns: as [method@Session.finish]; %FALSE with an error of %G_IO_ERROR_CANCELLED if
 * @cancellable was cancelled
 */
VEK_EXPORT
gboolean vek_service_session_finish_finish(VekServiceSession *session, GAsyncResult *result,
                                           GError **error);

/**
 * vek_service_session_run:
 * @session: a session
 * @loop: a main loop for the default main context
 * @timeout_ms: how long to wait at most at the end, in milliseconds
 *
 * Runs the main loop until it is quit, and then finishes the session like [method@Session.finish].
 * SIGINT and SIGTERM quit the loop. A second signal ends the wait.
 *
 * The same checks apply. Afterwards the signals have their default action.
 *
 * Returns: as [method@Session.finish]
 */
VEK_EXPORT
gboolean vek_service_session_run(VekServiceSession *session, GMainLoop *loop, guint timeout_ms);

G_END_DECLS

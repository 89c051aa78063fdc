#pragma once

#include <gio/gio.h>
#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_SESSION (vek_service_session_get_type())

/**
 * VekServiceSession:
 *
 * The reporting of a program, from its start to its end.
 *
 * A session takes the reporters of a program over, hands each report pass of its registry on to
 * all of them, adds passes of its own when 60 seconds are too long, and lets the last figures out
 * when the program ends:
 *
 * ```c
 * g_autoptr(VekServiceSession) session = vek_service_session_new(NULL);
 * vek_service_session_add_reporter(session, vek_metric_console_reporter_new());
 *
 * g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
 * vek_service_session_run(session, loop, 5000);
 * ```
 *
 * In a pass each metric's figures reach all reporters, in the order in which they were added. A
 * pass consumes what it reports: the ranges of a timeline, the boundary of a gauge's interval, the
 * last report of a metric. So a registry has one session, and a reporter that is registered with
 * the registry beside it goes without what passes of the session's own consume.
 *
 * Passes of the session's own retire no metric: a metric that the program has let go of gets its
 * last report from a periodic pass of the registry. What is counted on a metric while it is being
 * retired is not lost, if the metric was got from its constructor;
 * [method@Vek.MetricRegistry.get_metric] can return one that is no longer reported.
 *
 * Passes, [method@Session.report] and the operations that finish belong to the thread that runs
 * the default main context. Reporters may be added and removed on any thread.
 *
 * A session that is let go of without being finished ends silently: it makes no last pass, waits
 * for nobody, and lets its reporters go.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekServiceSession, vek_service_session, VEK_SERVICE, SESSION, GObject)

/**
 * VekServiceSession:period:
 *
 * How far apart two passes are at most, in seconds.
 *
 * The session adds passes of its own between those of the registry, which runs one every 60
 * seconds; with 60 it adds none. Timers of whole seconds may be a second late. It can be set at any
 * time, on any thread, from 1 to 60: GObject warns of any other value, and nothing changes.
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
 * Begins a session, and with it the periodic passes of the registry.
 *
 * A registry has one session at a time: while it has one, a second is a failed check.
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
 * Hands all later passes on to the reporter, too. A pass that is under way is not handed on to it.
 *
 * The session takes the reporter over, also when it has it already, which changes nothing, and
 * after a failed check. Nobody else should hold a Carbon or a JSON log reporter by the time the
 * session finishes: it sees by the references whether they are done. Once the session is over,
 * this is a failed check. Any thread may call it.
 */
VEK_EXPORT
void vek_service_session_add_reporter(VekServiceSession *session, VekMetricReporter *reporter);

/**
 * vek_service_session_remove_reporter:
 * @session: a session
 * @reporter: a reporter
 *
 * Hands no later pass on to the reporter, and lets it go. A pass that is under way is still handed
 * on to it. Any thread may call it.
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
 * Runs one pass for all reporters, now.
 *
 * It is a failed check on another thread than that of the default main context, within a pass, and
 * once the session is over.
 */
VEK_EXPORT
void vek_service_session_report(VekServiceSession *session);

/**
 * vek_service_session_finish:
 * @session: a session
 * @timeout_ms: how long to wait at most, in milliseconds
 *
 * Runs one last pass for all reporters, then the default main context until none of them has
 * anything under way, and ends the session.
 *
 * A connection that is being made counts as under way, and so does what is sent through it then.
 * A reporter that is not done in time is named in a warning; what it still has under way goes on if
 * the main loop does.
 *
 * The session is over as soon as the last pass is. What it registered with the registry does
 * nothing from then on, and the registry lives on. A second call returns what the first returns,
 * and waits as long as that one.
 *
 * It is a failed check on another thread than that of the default main context, and within a pass.
 *
 * Returns: %TRUE if nothing is under way any more, which does not tell whether all was written:
 *   the warnings of the reporters say what failed; %FALSE if the time was up, the wait was
 *   cancelled, or a check failed
 */
VEK_EXPORT
gboolean vek_service_session_finish(VekServiceSession *session, guint timeout_ms);

/**
 * vek_service_session_finish_async:
 * @session: a session
 * @timeout_ms: how long to wait at most, in milliseconds
 * @cancellable: (nullable): what ends the wait, for all who wait for the session
 * @callback: (scope async) (closure user_data): called when the wait has ended
 * @user_data: data for @callback
 *
 * Does what [method@Session.finish] does, but leaves running the main context to the program.
 *
 * The last pass is over when this returns; cancelling ends the wait only.
 */
VEK_EXPORT
void vek_service_session_finish_async(VekServiceSession *session, guint timeout_ms,
                                      GCancellable *cancellable, GAsyncReadyCallback callback,
                                      gpointer user_data);

/**
 * vek_service_session_finish_finish:
 * @session: a session
 * @result: what the callback was given
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
 * Runs the main loop until it is quit, which SIGINT and SIGTERM do from here on, then finishes the
 * session as [method@Session.finish] does. A second signal ends the wait.
 *
 * The same checks apply. Afterwards the signals have their default meaning.
 *
 * Returns: as [method@Session.finish]
 */
VEK_EXPORT
gboolean vek_service_session_run(VekServiceSession *session, GMainLoop *loop, guint timeout_ms);

G_END_DECLS

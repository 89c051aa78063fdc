#!/usr/bin/gjs
/* The smallest program that measures itself: it counts, and reports once. */

imports.gi.versions.Vek = '1.0';
const {Vek} = imports.gi;

const registry = Vek.MetricRegistry.get_default();
const reporter = Vek.MetricConsoleReporter.new();
const greetings = registry.counter_new('greetings', 'Count', null);

greetings.inc();
greetings.add(2);

registry.report(reporter);

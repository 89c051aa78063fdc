"""Tests of the mutants that scripts/check-mutation makes."""

import pathlib
import re
import unittest

from mutation.equivalents import key_of, read_equivalents
from mutation.mutants import make_mutants
from mutation.schemata import Schemata
from support import tap

ROOT = pathlib.Path(__file__).resolve().parents[2]

# A statement, and what the mutants make of it.
ROWS = (
    ('binary operators are exchanged', 'int a = b + c;', ['int a = b - c;']),
    ('comparisons move by one', 'bool a = b < c;', ['bool a = b <= c;']),
    ('pointers, references and brackets of templates are no operators',
     'Each<Metric> &a = *b->get<Metric *>(&c);', []),
    ('numbers change by one', 'int a = 60;', ['int a = 59;', 'int a = 61;']),
    ('zero becomes one', 'double a = 0.0;', ['double a = 1.0;']),
    ('suffixes stay', 'auto a = 1u;', ['auto a = 0u;', 'auto a = 2u;']),
    ('truths are exchanged', 'bool a = false;', ['bool a = true;']),
    ('texts and comments stay', 'auto a = "1 + 1";  // 1 + 1', []),
    ('conditions are negated', 'if (a) b = c;', ['if (!(a)) b = c;', 'if (a) ;']),
    ('what a condition declares first stays',
     'if (auto *a = b; !c) d = e;',
     ['if (auto *a = b; !(!c)) d = e;', 'if (auto *a = b; c) d = e;',
      'if (auto *a = b; !c) ;']),
    ('branches of an expression are exchanged', 'int a = b ? c : d(e);', ['int a = b ? d(e) : c;']),
    ('calls are dropped', 'update(a);', [';']),
    ('assignments are dropped', 'self->a = b;', [';']),
    ('jumps are dropped', 'for (;;) break;', ['for (;;) ;']),
    ('loops keep their conditions', 'for (; a(); b()) c();', ['for (; a(); b()) ;']),
    ('values are returned', 'return a;', []),
    ('declarations stay', 'g_autofree char *a = nullptr;', []),
    ('declarations by macros stay', 'g_autoptr(GSource) a = nullptr;', []),
    ('neighbouring arguments are exchanged',
     'int a = b(c, d(), e);', ['int a = b(d(), c, e);', 'int a = b(c, e, d());']),
    ('other locks are taken, or the lock is taken for reading',
     'vekin::WriterLock held(a);',
     ['vekin::WriterLock held(mutant_unlocked(a));', 'vekin::ReaderLock held(a);']),
    ('readers take other locks', 'ReaderLock held(a);', ['ReaderLock held(mutant_unlocked(a));']),
)

# Statements whose changes have no effect.
IDLE = (
    ('more room', 'a = g_new(A, 1);', ['a = g_new(A, 0);', 'a = g_new(1, A);', ';']),
    ('flags of arrays', 'a = g_array_new(FALSE, TRUE, n);',
     ['a = g_array_new(FALSE, FALSE, n);', 'a = g_array_new(FALSE, n, TRUE);',
      'a = g_array_new(TRUE, FALSE, n);', ';']),
    ('hints', 'a = g_string_sized_new(b + 128);', [';']),
    ('other negative numbers', 'g_call(-1);', ['g_call(-0);', ';']),
    ('the order of what is equal', 'a = g_strcmp0(b, c) == 0 && g_str_equal(d, e);',
     ['a = g_strcmp0(b, c) != 0 && g_str_equal(d, e);',
      'a = g_strcmp0(b, c) == 0 || g_str_equal(d, e);',
      'a = g_strcmp0(b, c) == 1 && g_str_equal(d, e);', ';']),
    ('making locks', 'g_mutex_init(&a);', []),
)

# A statement, and the choice between it and its mutants.
CHOICES = (
    ('statements', 'g();', '{ if (mutant(1)) {;} else {g();}}'),
    ('branches', 'if (a) g(); else h();',
     'if (( mutant(1) ? !!(!(a)) : !!(a)) ) { if (mutant(2)) {;} else {g();}} '
     'else { if (mutant(3)) {;} else {h();}}'),
    ('values of variables', 'int a = b + c;', 'int a = ( mutant(1) ? (b - c) : (b + c)) ;'),
    ('locks', 'MutexLock a(b);', 'MutexLock a(( mutant(1) ? (mutant_unlocked(b)) : (b)) );'),
    ('variables with constructors stay', 'Mutex a(1);', 'Mutex a(1);'),
    ('static variables stay', 'static int a = 0;', 'static int a = 0;'),
    ('switches', 'switch (a + b) {}', 'switch (( mutant(1) ? (a - b) : (a + b)) ) {}'),
    ('loops', 'for (int i = 0; i < n; i++) {}',
     'for (int i = ( mutant(1) ? (1) : (0)) ; ( mutant(2) ? !!(i <= n) : !!(i < n)) ; '
     '( mutant(3) ? (void)(i--) : (void)(i++)) ) {}'),
    ('functions within statements', 'g([] { h(); });',
     '{ if (mutant(1)) {;} else {g([] { { if (mutant(2)) {;} else {h();}} });}}'),
)


def mutate(code):
    return [mutant.apply(code) for mutant in make_mutants('a.cpp', code)]


def render(code):
    """The code in which each of its mutants can be chosen."""
    mutants = make_mutants('a.cpp', code)
    schemata = Schemata('a.cpp', code, mutants)
    return schemata.render({mutant: number + 1 for number, mutant in enumerate(mutants)})


def lines_of(code):
    """The numbers that the compiler gives to the lines with code."""
    numbers = []
    number = 0
    for line in code.splitlines():
        number += 1
        if match := re.match(r'#line (\d+)', line):
            number = int(match[1]) - 1
        elif line.strip():
            numbers.append(number)
    return numbers


class Mutants(unittest.TestCase):
    def test_rows(self):
        for sentence, statement, mutated in (*ROWS, *IDLE):
            with self.subTest(sentence):
                body = 'void f() {{\n  {}\n}}\n'
                self.assertEqual(sorted(mutate(body.format(statement))),
                                 sorted(map(body.format, mutated)))

    def test_only_statements_in_functions_are_dropped(self):
        code = 'struct A {\n  A(const A &) = delete;\n  int get(int a, int b);\n};\n'
        self.assertEqual(mutate(code), [])

    def test_lines_after_a_dropped_statement_keep_their_numbers(self):
        self.assertEqual(mutate('void f() {\n  call(\n      a);\n  int b;\n}\n'),
                         ['void f() {\n  \n;\n  int b;\n}\n'])

    def test_mutant_is_known_by_its_function_and_lines(self):
        keys = list(map(key_of, make_mutants('a.cpp', (
            'A *f() {\n  g(\n      a);\n}\n'
            'void A::b() {\n  g(b);\n}\n'
            'G_DEFINE_TYPE(A, a)\n'
            'class C {\n  C() {\n    g(c);\n  }\n};\n'))))
        self.assertEqual(keys, [('a.cpp f', 'g( a);', ';'), ('a.cpp A::b', 'g(b);', ';'),
                                ('a.cpp C', 'g(c);', ';')])

    def test_result_holds_until_the_function_changes(self):
        def identify(code):
            return [mutant.identity for mutant in make_mutants('a.cpp', code)]
        before = identify('void f() {\n  g(a);\n}\nvoid h() {\n  g(b);\n}\n')
        after = identify('void f() {\n  g(a, a);\n}\nvoid h() {\n  g(b);\n}\n')
        self.assertEqual([one == other for one, other in zip(before, after)], [False, True])

    def test_mutants_are_compiled_together(self):
        for sentence, statement, rendered in CHOICES:
            with self.subTest(sentence):
                code = render(f'void f() {{ {statement} }}\n')
                code = ' '.join(re.sub('#line.*', '', code).split())
                self.assertEqual(code, f'void f() {{ {rendered} }}')

    def test_functions_that_the_compiler_evaluates_have_no_choice(self):
        code = 'constexpr int f() {\n  return 1;\n}\n'
        self.assertEqual(render(code), code)

    def test_lines_keep_their_numbers_and_those_of_mutants_tell_which(self):
        code = 'void f() {\n  int a;\n  g(\n      a);\n  int b;\n}\n'
        self.assertEqual(lines_of(render(code)), [1, 2, 3, 100, 3, 4, 5, 6])

    def test_equivalents_are_mutants(self):
        equivalents = read_equivalents()
        for path in {place.split()[0] for place, _, _ in equivalents}:
            equivalents -= set(map(key_of, make_mutants(path, (ROOT / path).read_text())))
        self.assertEqual(equivalents, set())


if __name__ == '__main__':
    tap.run([Mutants])

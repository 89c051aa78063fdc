"""Tests of how the library is described to other languages, as TAP: gir.py GIR SYMBOLS

SYMBOLS is the list of what the library exports, as Debian keeps it.
"""

import pathlib
import sys
import xml.etree.ElementTree

from support import tap
from support.symbols import read_symbols

CORE, C, GLIB = (f'{{http://www.gtk.org/introspection/{name}/1.0}}'
                 for name in ('core', 'c', 'glib'))
GIR, SYMBOLS = sys.argv[1:]
NAMESPACE = xml.etree.ElementTree.parse(GIR).find(f'{CORE}namespace')

TYPES = ('class', 'interface', 'record')
CALLABLES = ('constructor', 'function', 'method', 'virtual-method')
PARAMETERS = ('instance-parameter', 'parameter', 'return-value')


def walk(element=NAMESPACE, path=()):
    """Yields each description below an element: its path, its tag and itself."""
    for child in element:
        tag = child.tag.removeprefix(CORE)
        # Macros are for C alone. What class structures say, the virtual methods say too.
        if tag == 'function-macro' or f'{GLIB}is-gtype-struct-for' in child.attrib:
            continue
        name = child.get('name')
        below = (*path, name or tag) if name or tag == 'return-value' else path
        yield '.'.join(below), tag, child
        yield from walk(child, below)


def none_of(complaint, paths):
    paths = sorted(set(paths))
    assert not paths, '\n'.join([f'{complaint}:', *paths])


def is_void(element):
    kind = element.find(f'{CORE}type')
    return kind is not None and kind.get('name') == 'none'


def everything_is_documented():
    none_of('without documentation',
            (path for path, tag, element in walk()
             if tag in (*TYPES, *CALLABLES, *PARAMETERS, 'constant', 'field', 'property')
             and element.get('name') != 'parent_instance' and not is_void(element)
             and element.find(f'{CORE}doc') is None))


def every_value_says_who_owns_it():
    none_of('without a transfer',
            (path for path, tag, element in walk()
             if tag in (*PARAMETERS, 'property') and 'transfer-ownership' not in element.attrib))


def every_list_says_what_it_holds():
    def holds_anything(element):
        inner = element.find(f'{CORE}type')
        return inner is None or inner.get('name') == 'gpointer'
    none_of('without an element type',
            (path for path, tag, element in walk()
             if (tag == 'array' or element.get('name') in ('GLib.SList', 'GLib.List'))
             and holds_anything(element)))


def nothing_is_kept_from_other_languages():
    none_of('not for other languages',
            (path for path, _, element in walk() if element.get('introspectable') == '0'))


def every_exported_function_is_described():
    exported = set(read_symbols(SYMBOLS)[1])
    described = {element.get(attribute) for _, _, element in walk()
                 for attribute in (f'{C}identifier', f'{GLIB}get-type')}
    none_of('exported and not described', exported - described)


def makers_are_constructors():
    """Those of reporters too, which C declares as functions that return the interface."""
    _, functions = read_symbols(SYMBOLS)
    makers = {name for name in functions if name.endswith('_new')
              and f'{name.removesuffix("_new")}_get_type' in functions}
    constructors = {element.get(f'{C}identifier') for _, tag, element in walk()
                    if tag == 'constructor'}
    none_of('not a constructor', makers - constructors)


tap.run([
    everything_is_documented,
    every_value_says_who_owns_it,
    every_list_says_what_it_holds,
    nothing_is_kept_from_other_languages,
    every_exported_function_is_described,
    makers_are_constructors,
])

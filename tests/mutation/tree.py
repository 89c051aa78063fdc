"""A copy of the sources in which mutants are built and tested."""

import filecmp
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ('common/*.hpp', 'vekmetrics/*.[ch]pp', 'companions/*/vekmetrics-*/*.[ch]pp',
           'companions/*/vekmetrics-*/*.c')
SUITES = {'vekmetrics:types', 'vekmetrics:companions'}  # the programs in C and C++

OPTIONS = {
    'plain': [],
    'coverage': ['-Db_coverage=true'],
    'address': ['-Db_sanitize=address', '-Db_lundef=false'],
}

# Random tests are as short as under valgrind. A mutant may loop, allocate or write without end.
ENVIRONMENT = {'RANDOM_PROGRAMS': '100', 'SCHEDULE_OPERATIONS': '2000'}
LIMITS = ['prlimit', '--cpu=60', '--core=0', '--fsize=100000000']
MEMORY = '--as=4000000000'  # not for sanitizers, which reserve more


def find_sources():
    return sorted(str(path.relative_to(ROOT)) for pattern in SOURCES for path in ROOT.glob(pattern))


def run(*command, **keywords):
    """Runs a command that must succeed; returns what it prints."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **keywords)
    if done.returncode:
        raise SystemExit(f'{" ".join(map(str, command))}\n{done.stdout}')
    return done.stdout


class Tree:
    """A copy of the sources, and builds of it."""

    def __init__(self, folder):
        self.folder = folder
        self.prelude = folder / 'build' / 'prelude.hpp'
        self.update()

    def update(self):
        """Makes the copy the same as the sources."""
        for name in run('git', 'ls-files', '-co', '--exclude-standard', cwd=ROOT).splitlines():
            path, copy = ROOT / name, self.folder / name
            if path.is_file() and not (copy.exists() and filecmp.cmp(path, copy, shallow=False)):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(path, copy)

    def build(self, kind):
        return self.folder / 'build' / kind

    def set_up(self, kind):
        """Makes a build, and returns its tests."""
        build = self.build(kind)
        if not (build / 'build.ninja').exists():
            if not self.prelude.exists():
                self.write_prelude()
            run('meson', 'setup', build, self.folder, '-Doptimization=0', '-Ddebug=false',
                '-Dintrospection=disabled', *OPTIONS[kind],
                env={**os.environ, 'CC_LD': 'mold', 'CXX_LD': 'mold',
                     'CXXFLAGS': f'-include {self.prelude}'})
            self.compile_prelude(kind)
        limits = LIMITS if 'sanitize' in str(OPTIONS[kind]) else [*LIMITS, MEMORY]
        tests = [Test(test, limits)
                 for test in json.loads(run('meson', 'introspect', '--tests', build))
                 if SUITES & set(test['suite'])]
        run('ninja', '-C', build, *(test.target for test in tests))
        return {test.name: test for test in tests}

    def write_prelude(self):
        """A header that includes those of the system. It is compiled in advance."""
        headers = {name for source in find_sources()
                   for name in re.findall('^#include <([^>]+)>', (ROOT / source).read_text(),
                                          re.MULTILINE) if not name.startswith('vekmetrics')}
        self.prelude.parent.mkdir(exist_ok=True)
        self.prelude.write_text(''.join(f'#if __has_include(<{name}>)\n#include <{name}>\n#endif\n'
                                        for name in sorted(headers)))

    def compile_prelude(self, kind):
        """Once for each library: the options must be those of the sources that include it."""
        folder = self.prelude.with_name('prelude.hpp.gch')
        folder.mkdir(exist_ok=True)
        units = {unit['output'].split('/')[0]: unit for unit in self.units(kind)
                 if unit['output'].startswith('lib') and unit['file'].endswith('.cpp')}
        for library, unit in units.items():
            self.compile(unit, f'-x c++-header {self.prelude}', folder / f'{kind}-{library}')

    def units(self, kind):
        return json.loads((self.build(kind) / 'compile_commands.json').read_text())

    def compile(self, unit, source, output, optimisation='-O0'):
        command = unit['command'].replace(' -O0 ', f' {optimisation} ')
        command = re.sub(r' -(MD|M[QF] \S+)(?= )', '', command)
        command, _, _ = command.partition(' -o ')
        if '-x c++-header' in source:
            command = command.replace(f'-include {self.prelude}', '')
        run('sh', '-c', f'{command} -o {output} -c {source}', cwd=unit['directory'])

    def optimised(self, path):
        """The optimised code of a source as it is now in the copy."""
        unit = next(unit for unit in self.units('plain')
                    if (self.build('plain') / unit['file']).resolve() == self.folder / path)
        output = self.folder / 'build' / 'optimised.o'
        self.compile(unit, unit['file'], output, '-O2')
        return output.read_bytes()

    def libraries(self, kind):
        return [path.name for path in self.build(kind).glob('lib*.so.*.*') if path.is_file()]

    def ninja(self, kind, targets):
        """Builds; returns whether it could be built.

        It ends when this program is ended: what it makes of a mutant later would look newer than
        the source.
        """
        command = ['setpriv', '--pdeathsig', 'TERM', 'ninja', '-C', self.build(kind), *targets]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors='replace', check=False)
        failed = re.search(r'^FAILED: (?!build\.ninja)', done.stdout, re.MULTILINE)
        if done.returncode and not failed:
            raise SystemExit(done.stdout)  # this is no fault of the mutant
        return not failed


class Test:
    """A test program."""

    def __init__(self, introspected, limits):
        program = pathlib.Path(introspected['cmd'][0])
        self.name = introspected['name']
        self.command = [*limits, *introspected['cmd']]
        self.environment = introspected['env']
        self.target = program.name
        self.build = program.parent

    def is_inside(self):
        """Whether it contains the objects of a library, instead of using the library."""
        inputs = run('ninja', '-C', self.build, '-t', 'query', self.target)
        return bool(re.search(r'\blib\S+\.o\b', inputs))

    def run(self, seconds=600):
        """Returns whether it "passes", "fails", or "hangs" for longer than these seconds."""
        with tempfile.TemporaryDirectory() as folder:
            process = subprocess.Popen(
                self.command, cwd=self.build, start_new_session=True,
                env={**os.environ, **self.environment, **ENVIRONMENT, 'TMPDIR': folder},
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                return 'fails' if process.wait(seconds) else 'passes'
            except subprocess.TimeoutExpired:
                return 'hangs'
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)  # and what it started
                except ProcessLookupError:
                    pass
                process.wait()

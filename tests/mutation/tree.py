"""A copy of the sources in which mutants are built and tested."""

import filecmp
import hashlib
import json
import os
import pathlib
import re
import select
import shutil
import signal
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ('common/*.hpp', 'vekmetrics/*.[ch]pp', 'companions/*/vekmetrics-*/*.[ch]pp',
           'companions/*/vekmetrics-*/*.c')
SUITES = {'vekmetrics:types', 'vekmetrics:companions'}  # the programs in C and C++
SLOW = {'soak'}

# The suppressions name functions, which have no arguments in what has debug information.
OPTIONS = {
    'plain': [],
    'address': ['-Db_sanitize=address', '-Db_lundef=false'],
    'thread': ['-Db_sanitize=thread', '-Db_lundef=false', '-Ddebug=true'],
}

# Random tests are as short as under valgrind.
ENVIRONMENT = {'RANDOM_PROGRAMS': '100', 'SCHEDULE_OPERATIONS': '2000'}


def find_sources():
    return sorted(str(path.relative_to(ROOT)) for pattern in SOURCES for path in ROOT.glob(pattern))


def run(*command, **keywords):
    """Runs a command that must succeed; returns what it prints."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **keywords)
    if done.returncode:
        raise SystemExit(f'{" ".join(map(str, command))}\n{done.stdout}')
    return done.stdout


def find_libraries(build):
    return sorted(path.name for path in build.glob('lib*.so.*.*') if path.is_file())


class Tree:
    """A copy of the sources, and builds of it."""

    def __init__(self, folder):
        self.folder = folder
        self.programs = {}  # of each build
        sources = set(find_sources())
        for name in run('git', 'ls-files', '-co', '--exclude-standard', cwd=ROOT).splitlines():
            path, copy = ROOT / name, folder / name
            if (path.is_file() and name not in sources and
                    not (copy.exists() and filecmp.cmp(path, copy, shallow=False))):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(path, copy)

    def write(self, path, code):
        copy = self.folder / path
        if not copy.exists() or copy.read_text() != code:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_text(code)

    def set_up(self, kind):
        """Makes a build, and finds its programs."""
        build = self.folder / 'build' / kind
        if not (build / 'build.ninja').exists():
            header = f'-include {self.folder}/tests/mutation/mutant.h -w -ftrack-macro-expansion=0'
            run('meson', 'setup', build, self.folder, '-Doptimization=0', '-Ddebug=false',
                '-Dintrospection=disabled', *OPTIONS[kind],
                env={**os.environ, 'CC_LD': 'mold', 'CXX_LD': 'mold', 'CFLAGS': header,
                     'CXXFLAGS': header})
        run('ninja', '-C', build, 'build.ninja')  # there may be other programs than last time
        self.programs[kind] = {test['name']: Program(test, kind, build)
                               for test in json.loads(run('meson', 'introspect', '--tests', build))
                               if SUITES & set(test['suite']) and test['name'] not in SLOW}

    def build(self, kind, path=''):
        """Builds; returns what the compiler says if it fails.

        A program that uses a library is not linked again if only this source of it changes.
        """
        if kind not in self.programs:
            self.set_up(kind)
        build = self.folder / 'build' / kind
        programs = [program.target for program in self.programs[kind].values()
                    if not path.endswith('.cpp') or program.is_inside]
        # It ends when this program is ended: what it made of a mutant later would look newer than
        # the source.
        done = subprocess.run(['setpriv', '--pdeathsig', 'TERM', 'ninja', '-C', build,
                               *([] if path else ['-k', '0']), *find_libraries(build), *programs],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors='replace', check=False)
        failed = re.search(r'^FAILED: (?!build\.ninja)', done.stdout, re.MULTILINE)
        if done.returncode and not failed:
            raise SystemExit(done.stdout)  # this is no fault of the mutant
        return done.stdout if failed else ''

    def digest(self, program):
        """Of a program and of all libraries, in one build."""
        files = [program.target, *find_libraries(program.build)]
        return hashlib.sha1(b''.join((program.build / file).read_bytes()
                                     for file in files)).hexdigest()

    def optimised(self, path, code):
        """The optimised code of a source."""
        build = self.folder / 'build' / 'plain'
        unit = next(unit for unit in json.loads((build / 'compile_commands.json').read_text())
                    if (build / unit['file']).resolve() == self.folder / path)
        before = (self.folder / path).read_text()
        output = self.folder / 'build' / 'optimised.o'
        try:
            self.write(path, code)
            command = re.sub(r' -(MD|M[QF] \S+)(?= )', '', unit['command'].replace(' -O0', ' -O2'))
            command, _, _ = command.partition(' -o ')
            run('sh', '-c', f'{command} -o {output} -c {unit["file"]}', cwd=build)
            return output.read_bytes()
        finally:
            self.write(path, before)


def processor_time(pid):
    """Of a process and those that it started, in ticks."""
    try:
        fields = pathlib.Path(f'/proc/{pid}/stat').read_text().rpartition(')')[2].split()
        children = [child for file in pathlib.Path(f'/proc/{pid}/task').glob('*/children')
                    for child in file.read_text().split()]
    except OSError:
        return 0
    return sum(map(int, fields[11:15])) + sum(map(processor_time, children))


def waits_for_ever(pid):
    """Waits for a process until it ends, or until it has not run for some seconds.

    On a busy machine, a process that does not wait still runs a little in each second.
    """
    descriptor = os.pidfd_open(pid)
    try:
        poll = select.poll()
        poll.register(descriptor, select.POLLIN)
        before = -1
        while not poll.poll(5000):
            now = processor_time(pid)
            if now == before:
                return True
            before = now
        return False
    finally:
        os.close(descriptor)


class Program:
    """A test program in a build."""

    def __init__(self, test, kind, build):
        self.name = test['name']
        self.kind = kind
        self.command = test['cmd']
        self.environment = {**os.environ, **test['env'], **ENVIRONMENT}
        self.build = build
        self.target = os.path.relpath(test['cmd'][0], build)
        # Whether it contains the objects of a library, instead of using the library.
        inputs = run('ninja', '-C', self.build, '-t', 'query', self.target)
        self.is_inside = bool(re.search(r'\blib\S+\.o\b', inputs))

    def cases(self):
        listed = run(*self.command, '-l', env=self.environment, cwd=self.build)
        return re.findall('^/.*', listed, re.MULTILINE)

    def run(self, case, variables, seconds):
        """Runs a test case; returns whether it passes, and the processor time that it takes.

        A mutant may loop, allocate or write without end, so it gets ten times as many seconds of
        processor time. It may also wait for ever. Sanitizers reserve much memory.
        """
        command = ['prlimit', '--core=0', f'--cpu={int(10 * seconds) + 2}', '--fsize=100000000',
                   *(['--as=4000000000'] if self.kind == 'plain' else []), *self.command]
        with tempfile.TemporaryDirectory() as folder:
            process = subprocess.Popen(
                [*command, '-p', case], cwd=self.build, start_new_session=True,
                env={**self.environment, **variables, 'TMPDIR': folder},
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                if waits_for_ever(process.pid):
                    return False, 0
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
                return not status, usage.ru_utime + usage.ru_stime
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)  # what it started, and it if interrupted
                except ProcessLookupError:
                    pass

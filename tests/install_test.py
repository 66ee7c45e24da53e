"""Installs veridaneprobe into a temporary prefix and uses it as a user would: the layout and
manifest, an analysis, the man pages, and saved scripts started with the classic matplotlib hook
of the installed site directory (added by a sitecustomize module: the machine's is not touched).

usage: python3 install_test.py CMAKE BUILD_DIR VERSION [SITE_DIR (the build's VDP_PYTHON_SITE_DIR)]
"""

import csv
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

CMAKE, BUILD_DIR, VERSION = sys.argv[1:4]
SITE_DIR = (sys.argv[4] if len(sys.argv) > 4 else
            'lib/python%d.%d/dist-packages' % sys.version_info[:2])
INSTALLED_FILES = {
    'bin/veridaneprobe',
    'bin/veridaneprobe-check',
    'bin/veridaneprobe-plot',
    SITE_DIR + '/veridaneprobe-classic-matplotlib.pth',
    SITE_DIR + '/veridaneprobe_classic_matplotlib.py',
    SITE_DIR + '/veridaneprobe_compat.py',
    'share/doc/veridaneprobe/README.md',
    'share/man/man1/veridaneprobe-check.1',
    'share/man/man1/veridaneprobe.1',
    'share/veridaneprobe/masks.txt',
}

# The installed site directory read as one at start-up (its .pth file included).
SITECUSTOMIZE = """import os, site
site.addsitedir(os.environ['VDP_TEST_SITE_DIR'])
"""

# A matplotlib backend that draws like Agg and whose show(), where a desktop would open the
# plot window, saves every figure and the data of its lines: the witness that a script drew.
FIGURE_WITNESS_BACKEND = """import json, os
from matplotlib import pyplot
from matplotlib.backend_bases import FigureManagerBase as FigureManager
from matplotlib.backends.backend_agg import FigureCanvasAgg as FigureCanvas

def show(*args, **kwargs):
    witness = os.environ['VDP_TEST_WITNESS']
    lines = []
    for number in pyplot.get_fignums():
        figure = pyplot.figure(number)
        figure.savefig(witness + '-%d.png' % number)
        lines += [[[float(x) for x in line.get_xdata()], [float(y) for y in line.get_ydata()]]
                  for axes in figure.axes for line in axes.get_lines()]
    with open(witness + '.json', 'w') as stream:
        json.dump(lines, stream)
"""

ANALYSIS_TRANSCRIPT = ('veridaneprobe %s\n\nLoading time errors into memory...\n'
                       'Running Allan Deviation Analysis...\nAnalysis Done\n' % VERSION)


def files_below(root):
    return {os.path.relpath(os.path.join(folder, name), root)
            for folder, _, names in os.walk(root) for name in names}


class InstalledTool(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.mkdtemp(prefix='veridaneprobe-install-')
        cls.prefix = os.path.join(cls.scratch, 'prefix')
        cls.install = cls.install_keeping_manifest()
        cls.output = os.path.join(cls.scratch, 'out')
        data = os.path.join(cls.scratch, 'run.csv')
        with open(data, 'w') as stream:
            stream.write('index,time,time_error\n')
            for index in range(200):
                stream.write('%d,%.3f,%.1fe-9\n' % (index, 1000 + index / 8, (index * 37) % 11))
        cls.analysis = subprocess.run(
            [os.path.join(cls.prefix, 'bin/veridaneprobe'), 'time-error', '--data', data,
             '--output', cls.output, '--no-madev', '--no-tdev', '--no-rmstie', '--no-mtie',
             '--window-upper', '20'],
            capture_output=True, text=True, env=dict(os.environ, PWD=cls.scratch))
        startup = os.path.join(cls.scratch, 'startup')
        os.mkdir(startup)
        for name, text in (('sitecustomize.py', SITECUSTOMIZE),
                           ('vdp_figure_witness.py', FIGURE_WITNESS_BACKEND)):
            with open(os.path.join(startup, name), 'w') as stream:
                stream.write(text)
        cls.python_env = dict(os.environ, PYTHONPATH=startup, PYTHONDONTWRITEBYTECODE='1',
                              VDP_TEST_SITE_DIR=os.path.join(cls.prefix, SITE_DIR),
                              MPLBACKEND='Agg')

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.scratch)

    @classmethod
    def install_keeping_manifest(cls):
        """Installs, keeping the build's install_manifest.txt (a user's uninstall reads it)."""
        manifest = os.path.join(BUILD_DIR, 'install_manifest.txt')
        saved = os.path.join(cls.scratch, 'install_manifest.txt')
        kept = os.path.exists(manifest) and shutil.copy(manifest, saved)
        try:
            result = subprocess.run([CMAKE, '--install', BUILD_DIR, '--prefix', cls.prefix],
                                    capture_output=True, text=True)
            with open(manifest) as stream:
                result.manifest = stream.read().split()
        finally:
            if kept:
                os.replace(saved, manifest)
            else:
                os.remove(manifest)
        return result

    def run_script(self, command, **env):
        return subprocess.run(command, cwd=self.output, capture_output=True, text=True,
                              env=dict(self.python_env, **env))

    def assert_draws(self, command, csv_name, x_column, y_column):
        """Runs a saved script under the witness backend and compares its line with its CSV."""
        witness = os.path.join(self.scratch, 'witness-' + os.path.basename(command[-1]))
        result = self.run_script(command, MPLBACKEND='module://vdp_figure_witness',
                                 VDP_TEST_WITNESS=witness)
        self.assertEqual((result.returncode, result.stderr), (0, ''))
        with open(witness + '.json') as stream, open(os.path.join(self.output, csv_name)) as table:
            lines, rows = json.load(stream), list(csv.DictReader(table))
        self.assertEqual(lines, [[[float(row[x_column]) for row in rows],
                                  [float(row[y_column]) for row in rows]]])
        self.assertGreater(os.path.getsize(witness + '-1.png'), 10000)

    def test_layout_and_manifest(self):
        self.assertEqual(self.install.returncode, 0, self.install.stderr)
        self.assertEqual(files_below(self.prefix), INSTALLED_FILES)
        self.assertEqual(sorted(self.install.manifest),
                         sorted(os.path.join(self.prefix, name) for name in INSTALLED_FILES))
        for program in ('bin/veridaneprobe', 'bin/veridaneprobe-check', 'bin/veridaneprobe-plot'):
            self.assertTrue(os.access(os.path.join(self.prefix, program), os.X_OK), program)

    def test_installed_executable_runs_an_analysis(self):
        self.assertEqual(
            (self.analysis.returncode, self.analysis.stdout, self.analysis.stderr),
            (1, ANALYSIS_TRANSCRIPT, ''))
        self.assertEqual(
            files_below(self.output),
            {'PlotTimeError.py', 'PlotADEV.py'} |
            {'time-error_analysis_%s.%s' % (step, kind)
             for step in ('time_error', 'adev') for kind in ('csv', 'png', 'pdf')})

    def man_page(self, name):
        page = subprocess.run(
            ['man', '--warnings', '-M', os.path.join(self.prefix, 'share/man'), '1', name],
            capture_output=True, text=True, env=dict(os.environ, LC_ALL='C.UTF-8', MANWIDTH='80'))
        self.assertEqual((page.returncode, page.stderr), (0, ''))
        return page.stdout

    def test_man_pages_render_without_warnings(self):
        page = self.man_page('veridaneprobe')
        self.assertTrue(page.startswith('VERIDANEPROBE(1)'), page[:200])
        self.assertIn('veridaneprobe ' + VERSION, page)
        for heading in ('SYNOPSIS', 'COMMANDS', 'OPTIONS', 'EXIT STATUS', 'OUTPUT FILES',
                        'EXAMPLES'):
            self.assertIn('\n' + heading + '\n', page)
        # Every mask of the installed definitions, with its source.
        page = self.man_page('veridaneprobe-check')
        for line in open(os.path.join(self.prefix, 'share/veridaneprobe/masks.txt')):
            if line.strip() and not line.startswith('#'):
                fields = [field.strip() for field in line.split('|')]
                self.assertIn(fields[0] + ' ' + fields[1] + '\n', page)

    def test_hook_imports_nothing_of_matplotlib_at_start_up(self):
        result = self.run_script([sys.executable, '-c', 'import sys; print(sorted(name for name'
                                  ' in sys.modules if name.startswith(("matplotlib", "numpy",'
                                  ' "veridaneprobe"))))'])
        self.assertEqual(result.stdout, "['veridaneprobe_classic_matplotlib']\n")

    def test_saved_scripts_started_directly_by_python_and_by_the_plot_runner(self):
        self.assert_draws(['./PlotTimeError.py'], 'time-error_analysis_time_error.csv', 'time',
                          'time_error')
        self.assert_draws([sys.executable, 'PlotADEV.py'], 'time-error_analysis_adev.csv', 'tau',
                          'adev')
        # The plot runner without the hook: the site directory as a plain path entry.
        for command, env in ((['./PlotADEV.py'], {}),
                             ([os.path.join(self.prefix, 'bin/veridaneprobe-plot'), 'PlotADEV.py'],
                              {'PYTHONPATH': self.python_env['VDP_TEST_SITE_DIR']})):
            result = self.run_script(command, **env)
            self.assertEqual((result.returncode, result.stderr), (0, ''), command)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=2)

#!/usr/bin/env python3
"""Installs the package on a fresh Debian 12, and runs every command that the pages of the documents
print there, as an ordinary account and without a network.

    documents.py --deb DEB --key PRIVATE.pem --debian ROOT.tar --json OUT [-v]

ROOT.tar is a minimal Debian 12, as mmdebstrap makes it. What a page prints for other surroundings is
listed below with the reason; whatever else it prints has to work. What is written as usage, with
brackets or bars, names options that have to exist.
"""

import argparse
import collections
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'patches'))

import printed_commands  # pylint: disable=wrong-import-position
import world  # pylint: disable=wrong-import-position

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent / 'documents'
TIME_LIMIT = 900
# What the pages name beside the package's own programs; the package suggests them.
TOOLS = ('openssl', 'osslsigncode', 'graphviz', 'libxml2-utils', 'softhsm2', 'libengine-pkcs11-openssl', 'man-db',
         'ansible-core')

# Commands that can't run here, with the reason. One that the pages no longer print is a fault.
ELSEWHERE = {
    'scripts/build linux': 'builds, which takes the sources and a network',
    'scripts/package --key release-public.pem': 'the same',
    'cmake --preset package-linux -DTESSEL_PUBLIC_KEY=$PWD/release-public.pem': 'the same',
    'cmake --build --preset package-linux --target programs': 'the same',
    'cmake --install build/package-linux --prefix /usr/local': 'the same',
    'scripts/windows-kit': 'the same',
    'scripts/windows-kit --wine': 'the same',
    'scripts/read-windows-report windows-report.txt': 'takes a checkout, and a report from a Windows',
    'tlx events --follow --records machines/*': 'follows events until it is stopped',
    'apt-get install ansible-core': 'takes root, and was done before',
    'ansible-playbook -i inventory -f 8 ambry_shield.tessel.check':
        'takes an inventory and its machines, as tests/ansible/fleet.py makes them, which runs these plays',
    'ansible-playbook -i inventory -f 8 ambry_shield.tessel.fleet -e rollout_name=fix-4711 '
    '-e rollout_patch=/srv/patches/fix-4711 --check --diff': 'the same',
    'ansible-playbook -i inventory -f 8 ambry_shield.tessel.fleet -e rollout_name=fix-4711 '
    '-e rollout_patch=/srv/patches/fix-4711': 'the same',
    'apt-get install syslog-ng-core': 'takes root; the tests of events run syslog-ng with this very file',
    'cp docs/samples/syslog-ng-tessel.conf /etc/syslog-ng/conf.d/tessel.conf': 'the same',
    'syslog-ng --syntax-only && systemctl restart syslog-ng': 'the same',
    'ntfs-3g -o permissions /dev/sdb3 /mnt/windows': 'mounts a disk, as root',
}
# Run as root, with a network: how the package is installed.
INSTALL = 'apt install ./tessel_*_amd64.deb'

# Where the commands of a page run, and what was there before.
SETUP = """
set -e
mkdir -p /home/me /mnt/windows && cd /home/me
docs=/usr/share/doc/tessel/docs
ln -s $docs docs
cp $docs/samples/*.xml .
cp /given/private.pem .
mkdir -p build/linux/dev-keys build/linux/bin && cp private.pem build/linux/dev-keys/
cp /usr/bin/tlx /usr/bin/tessel build/linux/bin
$docs/samples/certificates authority authority
$docs/samples/certificates issue authority publisher
tlx machine create machine --trust authority.pem
for name in DIR /mnt/windows; do tlx machine create $name --windows 7; done
export TESSEL_MACHINE=/home/me/machine
sign() { tlx catalog --cert publisher.pem --key publisher.key --chain authority.pem --dir $1; }
patch() { mkdir -p $1; tlx pack --key private.pem --in $2 --out $1/$1.tlx; sign $1; }
patch broken $docs/samples/broken_product.xml
tessel /encfile $PWD/broken/broken.tlx
TESSEL_MACHINE=DIR tessel /encfile $PWD/broken/broken.tlx
cp private.pem key.pem && openssl pkey -in key.pem -pubout -out PUB.pem
"""
PAGES = {
    'README.md': """patch fix-4711 docs/samples/repair_product.xml""",
    'docs/fleet.md': '',
    'docs/installing.md': '',
    'docs/events.md': '''
mkdir machines collected
for name in till-1 till-2; do tlx machine create machines/$name; done
''',
    'docs/running-patches.md': """
tlx pack --key private.pem --in docs/samples/first_patch.xml --out fix.tlx
cp fix.tlx PATCH; export TESSEL_MACHINE=/mnt/windows
""",
    'docs/writing-patches.md': """
cp /given/fix-4711.xml .
cat >tokens.conf <<<"directories.tokendir = $PWD/tokens"; mkdir tokens; export SOFTHSM2_CONF=$PWD/tokens.conf
export PKCS11_MODULE_PATH=/usr/lib/softhsm/libsofthsm2.so; echo 2468 >pin
softhsm2-util --init-token --free --label Release --pin 2468 --so-pin 1357
openssl pkcs8 -topk8 -nocrypt -in publisher.key -out publisher.pk8
softhsm2-util --token Release --pin 2468 --import publisher.pk8 --label publisher --id 01
""",
}
# What a page's reader does between two of its commands.
BEFORE = {
    'tlx rehearse fix-4711.xml --machine machine --answer processRun=2 --answer serviceStart=1053':
        'cp docs/samples/repair_product.xml fix-4711.xml',
    'mkdir fix-4711': 'rm -rf fix-4711',
    'tlx machine create machine --trust authority.pem': 'rm -rf machine',
    'TESSEL_MACHINE=machine tessel /encfile "$PWD/fix-4711/fix-4711.tlx" /diagnostic':
        'sign fix-4711; sign broken; TESSEL_MACHINE=machine tessel /encfile $PWD/broken/broken.tlx',
}


class Debian:
    """A Debian in a folder of its own."""

    def __init__(self, archive, folder):
        self.root = folder / 'root'
        self.root.mkdir()
        # Devices come from the sandbox.
        subprocess.run(['tar', '-xf', archive, '-C', self.root, '--exclude=./dev/*'], check=True)

    def run(self, script, options):
        command = ['bwrap', '--bind', self.root, '/', '--dev', '/dev', '--proc', '/proc',
                   '--unshare-pid', '--unshare-ipc', '--die-with-parent', '--clearenv',
                   '--setenv', 'PATH', '/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin',
                   '--setenv', 'LC_ALL', 'C.UTF-8', *options, 'bash']
        return subprocess.run(command, input=script, capture_output=True, text=True, timeout=TIME_LIMIT,
                              errors='replace', check=False)

    def as_root(self, script):
        return self.run(script, ['--cap-add', 'ALL', '--ro-bind', '/etc/resolv.conf', '/etc/resolv.conf',
                                 '--setenv', 'DEBIAN_FRONTEND', 'noninteractive', '--chdir', '/root'])

    def as_user(self, script):
        return self.run(script, ['--unshare-user', '--uid', '1000', '--gid', '1000', '--unshare-net',
                                 '--setenv', 'HOME', '/home/me', '--setenv', 'USER', 'me'])


def fails(run):
    return run.returncode != 0


class Documents:
    """The pages of the package, and what is wrong with them."""

    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.debian = Debian(options.debian, folder)
        self.outcomes, self.skipped = {}, collections.Counter()

    def judge(self, what, fault):
        self.outcomes[str(what)] = fault
        if self.options.verbose:
            print(f'{"FAILED" if fault else "ok"} {what} {fault or ""}', flush=True)

    def install(self):
        """As docs/installing.md has it. Nothing else is there that the programs might need."""
        shutil.copy(self.options.deb, self.debian.root / 'root')
        run = self.debian.as_root(f'apt-get -q update && {INSTALL} --yes --no-install-recommends && '
                                  'test "$(tlx --version)" = "tlx $(dpkg-query -W -f \\${Version} tessel)"')
        self.judge(INSTALL, run.stdout + run.stderr if fails(run) else '')
        run = self.debian.as_root('apt-get -q -y --no-install-recommends install ' + ' '.join(TOOLS))
        if fails(run):
            raise SystemExit(f'The tools can\'t be installed: {run.stderr}')
        given = self.debian.root / 'given'
        given.mkdir()
        shutil.copy(self.options.key, given / 'private.pem')
        shutil.copy(HERE / 'fix-4711.xml', given)

    def run_page(self, page, commands):
        """In one shell, from a fresh home on."""
        home = self.debian.root / 'home' / 'me'
        for used in (home, self.debian.root / 'mnt' / 'windows'):
            shutil.rmtree(used, ignore_errors=True)
        script = [SETUP, PAGES[page], 'set +e']
        for number, command in enumerate(commands):
            text = command.text.split(' #')[0].rstrip()
            script += [BEFORE.get(text, ''), f'echo; echo @@ {number}', f'{text} </dev/null',
                       f'code=$?; echo; echo @@ {number} ended with $code']
        run = self.debian.as_user('exec 2>&1\n' + '\n'.join(script) + '\n')
        outputs = re.findall(r'^@@ (\d+)\n(.*?)^@@ \1 ended with (\d+)$', run.stdout, re.DOTALL | re.MULTILINE)
        outputs = {int(number): (output, int(code)) for number, output, code in outputs}
        for number, command in enumerate(commands):
            self.judge(command, self.fault_of(command, *outputs.get(number, (run.stdout[-2000:], None))))

    @staticmethod
    def fault_of(command, output, code):
        if command.shown is None:
            return '' if code == 0 else f'ended with {code}\n{output}'
        # "..." stands for lines that the page leaves out.
        wanted = re.escape('\n'.join(command.shown).strip()).replace(r'\.\.\.', '.*')
        shown = re.search(wanted, output, re.DOTALL)
        return '' if shown and code is not None else f'it printed\n{output}'

    def check_options(self, command):
        if not re.search(r'\btlx \w', command.text):
            return
        names, options = printed_commands.options_of(command)
        run = self.debian.as_user(f'tlx {" ".join(names)} --help')
        known = re.findall(r'--[a-z][\w-]*', run.stdout)
        missing = [option for option in options if option not in known]
        self.judge(command, 'has no ' + ', '.join(missing) if missing or fails(run) else '')

    def check_page(self, page):
        text = (self.debian.root / 'usr/share/doc/tessel' / page).read_text(encoding='utf-8')
        printed = printed_commands.commands_of(page, text)
        runs = []
        for command in printed:
            plain = command.text.split(' #')[0].rstrip()
            if plain in ELSEWHERE:
                self.skipped['a command for another place'] += 1
                self.left.discard(plain)
            elif command.is_usage():
                self.check_options(command)
            elif plain != INSTALL:
                runs.append(command)
        for command in printed_commands.spans_of(page, text):
            self.check_options(command)
        if runs:
            if page not in PAGES:
                self.judge(page, 'prints commands, and it isn\'t known where they run')
            else:
                self.run_page(page, runs)

    def check(self):
        self.left = set(ELSEWHERE)
        self.install()
        documents = self.debian.root / 'usr/share/doc/tessel'
        for path in (documents / 'README.md', *sorted((documents / 'docs').glob('*.md'))):
            self.check_page(str(path.relative_to(documents)))
        for plain in sorted(self.left):
            self.judge(plain, 'no page prints it any more')


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    for name in ('--deb', '--key', '--debian'):
        parser.add_argument(name, type=pathlib.Path, required=True)
    parser.add_argument('--json', type=pathlib.Path)
    parser.add_argument('-v', '--verbose', action='store_true')
    options = parser.parse_args()
    folder = pathlib.Path(tempfile.mkdtemp(prefix='tessel-debian-'))
    try:
        documents = Documents(options, folder)
        documents.check()
    finally:
        shutil.rmtree(folder)
    return world.report(documents.outcomes, documents.skipped, options.json)


if __name__ == '__main__':
    sys.exit(main())

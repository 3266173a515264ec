#!/usr/bin/env python3
"""What a publisher does with tlx, and what the gates then say to the outcome.

    publishing.py --linux TESSEL --tlx TLX --key PEM --json OUT [--filter GLOB] [-v]
                  [--windows TLX_EXE [--wine wine]]

--json gets what that of run.py does. What the program of Windows does, it does under Wine.
"""

import contextlib
import copy
import hashlib
import http.server
import os
import pathlib
import pty
import shutil
import subprocess
import sys
import tempfile
import termios
import threading
import time

import gate_runs
import world
from world import expect

REFUSED = 'a run will end with 323 ("Integrity check failed. Reason: invalid digital signature.")'
SOFTHSM = '/usr/lib/softhsm/libsofthsm2.so'


class Publisher(world.World):
    """Certificates and a machine, for all rows; each row has a folder of its own."""

    def __init__(self, options, folder):
        super().__init__(options.linux, options.tlx, options.key, folder)
        self.machine = self.make_machine(folder / 'machine')
        self.program = [self.tlx]

    def tell(self, *words, **how):
        """What a call of tlx ends with and says, one call after the other."""
        # In a session of its own there is no terminal on which to ask.
        done = subprocess.run([*self.program, *words], capture_output=True, timeout=world.TIME_LIMIT,
                              stdin=subprocess.DEVNULL, start_new_session=True, check=False, **how)
        expect(not done.stdout, f'tlx wrote to standard output: {done.stdout}')
        return done.returncode, done.stderr.decode().splitlines()

    def catalog(self, folder, *more, signer=None, **how):
        certificate, key = signer or self.publisher
        return self.tell('catalog', '--cert', certificate, '--key', key, '--chain',
                         self.root.certificate, '--dir', folder, *more, **how)

    def patch_folder(self, folder):
        place = folder / 'patch'
        place.mkdir()
        self.pack(place / 'fix.tlx', gate_runs.BODY)
        (place / 'Sub').mkdir()
        (place / 'Sub' / 'Deep.bin').write_bytes(bytes(range(256)))
        return place

    def expect_run(self, folder, place, code=-3):
        """A run of the patch on a machine of its own ends with this code."""
        machine = shutil.copytree(self.machine, folder / 'machine', dirs_exist_ok=True)
        (machine / world.INSTALL).mkdir(parents=True, exist_ok=True)
        done = subprocess.run([self.tessel, '/encfile', place / 'fix.tlx'], capture_output=True,
                              env={**os.environ, 'TESSEL_MACHINE': str(machine)}, check=False,
                              timeout=world.TIME_LIMIT)
        expect(done.returncode == code & 0xFF, f'the run ended with {done}')


def names(this, folder):
    """Every name that no Windows can have is told, and nothing is signed."""
    place = this.patch_folder(folder)
    characters, device = "no file of Windows has a '{}' in its name", "the name is that of a device"
    faults = {b'a:b': characters.format(':'), b'a\\b': characters.format('\\'),
              b'Sub/q?': characters.format('?'), b'a\tb': 'a control character (9)',
              b'dot.': 'a dot or a blank at the end', b'blank ': 'a dot or a blank at the end',
              b'Con': device, b'Sub/nul .x': device, b'COM1.log': device, 'LPT³'.encode(): device,
              b'not\xffUTF': "isn't a text in UTF-8", 'é.x'.encode(): 'has the same name to Windows',
              b'sub': 'has the same name to Windows', b'PATCH.CAT': None}
    for name in [*faults, 'É.x'.encode(), b'Console', b'COM10', b'patch.cat']:
        pathlib.Path(os.fsdecode(os.path.join(os.fsencode(place), name))).touch()
    code, lines = this.catalog(place)
    missing = [name for name, words in faults.items() if words and not any(
        ': error: ' in line and words in line for line in lines)]
    expect(code == 1 and not missing and len(lines) == len(faults), f'{missing} of {lines}')
    expect(not (place / 'patch.cat').stat().st_size, 'the catalog was written')


def not_files(this, folder):
    """What is no regular file is told, without waiting for anybody, and --force doesn't help."""
    place = this.patch_folder(folder)
    os.mkfifo(place / 'pipe')
    (place / 'tessel-1-0123456789abcdef.tmp').touch()
    for name, target in (('file', 'fix.tlx'), ('folder', 'Sub'), ('patch.cat', 'nowhere')):
        (place / name).symlink_to(target)
    for more in ((), ('--force',)):
        code, lines = this.catalog(place, *more)
        expect(code == 1 and [line.rpartition('\\')[2] for line in lines] == [
            f'{name}: error: {words}' for name, words in (
                ('file', 'it is a link; a patch takes only files themselves along'),
                ('folder', 'it is a link; a patch takes only files themselves along'),
                ('patch.cat', 'it is a link; a patch takes only files themselves along'),
                ('pipe', 'it is no regular file, and no run takes it'),
                ('tessel-1-0123456789abcdef.tmp', 'it was never finished, unless another tlx is at '
                                                  'it; remove it'))], f'{code} {lines}')


def signers(this, folder):
    """A certificate that no run accepts is told of, and the run does what the warning says."""
    place = this.patch_folder(folder)
    for name, words, how in (
            ('stranger', "isn't the publisher's", {'subject': '/O=Corvane SRL/CN=Corvane'}),
            ('lost', 'counts as lost', {'serial': gate_runs.refused_serial(this.tessel)}),
            ('server', "isn't one for code signing", {'purpose': 'serverAuth'}),
            ('old', 'has expired', {'days': '-1'})):
        signer = this.root.issue(f'publishing-{name}', **how)
        code, lines = this.catalog(place, '--force', signer=signer)
        expect(code == 0 and len(lines) == 1 and words in lines[0] and lines[0].endswith(REFUSED),
               f'{name}: {lines}')
        this.expect_run(folder, place, 323)
    code, lines = this.catalog(place, signer=this.root.issue('publishing-short', days='3'))
    expect(code == 0 and len(lines) == 1 and 'expires on' in lines[0], f'{code} {lines}')
    this.expect_run(folder, place)


# --- Keys on tokens

def prompted(words, environment, pin):
    """What a call says on a terminal of its own where somebody types the PIN, and ends with."""
    child, terminal = pty.fork()
    if child == 0:
        os.execve(words[0], [str(word) for word in words], environment)
    said = b''
    try:
        while data := os.read(terminal, 4096):
            said += data
            if said.endswith(b':'):
                gate_runs.wait_until(lambda: not termios.tcgetattr(terminal)[3] & termios.ECHO,
                                     'the PIN would be seen on the terminal')
                os.write(terminal, pin + b'\n')
    except OSError:  # the other end is closed
        pass
    os.close(terminal)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), said.decode()


def token(this, folder):
    """Both keys on a token that SoftHSM plays; the token is used as its PIN says, and only so."""
    place = this.patch_folder(folder)
    (folder / 'tokens').mkdir()
    (folder / 'softhsm.conf').write_text(f'directories.tokendir = {folder}/tokens\n')
    how = {'env': {**os.environ, 'SOFTHSM2_CONF': str(folder / 'softhsm.conf'),
                   'PKCS11_MODULE_PATH': SOFTHSM}}
    hsm = ['softhsm2-util', '--token', 'tests', '--pin', '2468']
    subprocess.run(['softhsm2-util', '--init-token', '--free', '--label', 'tests', '--pin', '2468',
                    '--so-pin', '1357'], check=True, capture_output=True, **how)
    certificate, key = this.publisher
    for number, (label, path) in enumerate({'publisher': key, 'patch': this.key}.items()):
        subprocess.run([*hsm, '--import', path, '--label', label, '--id', f'0{number}'], check=True,
                       capture_output=True, **how)
    for name, text in (('pin', '2468\n'), ('wrong', '2469\n'), ('empty', '\n')):
        (folder / name).write_text(text)
    uri = 'pkcs11:token=tests;object=publisher'
    for key, more, words in (
            (uri, ('--pin-file', folder / 'pin'), None),
            (f'{uri}?module-path={SOFTHSM}&pin-source=file:{folder}/p%69n', (), None),
            (uri, ('--pin-file', folder / 'wrong'), 'PIN incorrect'),
            (uri, ('--pin-file', folder / 'empty'), 'no PIN in the first line'),
            (uri, ('--pin-file', folder / 'none'), 'there is no such file'),
            (uri, (), 'no token gives such a key'),  # nobody is there to be asked
            (f'{uri}?pin-value=2468', (), 'a PIN is never an argument'),
            (f'{uri};pin-value=2468', (), 'a PIN is never an argument'),
            (f'{uri}?pin-source=|{folder}/pin', (), "'pin-source' must name a file"),
            (f'{uri}?module-name=x', (), "'module-name' isn't known"),
            ('pkcs11:token=tests;object=patch', ('--pin-file', folder / 'pin'), "doesn't belong"),
            ('pkcs11:object=other', ('--pin-file', folder / 'pin'), 'object not found'),
            (this.publisher[1], ('--pin-file', folder / 'pin'), 'has no PIN')):
        (place / 'patch.cat').unlink(missing_ok=True)
        code, lines = this.catalog(place, *more, signer=(certificate, key), **how)
        good = (code, (place / 'patch.cat').exists()) == ((1, False) if words else (0, True))
        expect(good and (': error: ' in lines[-1] and words in lines[-1] if words else not lines),
               f'{key} {more}: {code} {lines}')
        expect('2468' not in ''.join(lines), f'the PIN is told: {lines}')
    script = folder / 'fix.xml'
    script.write_text('<p version="1.0"><header><property name="patchType" value="external"/>'
                      f'<property name="created" value="{int(time.time())}"/></header><script>'
                      '<exit code="3"/></script></p>')
    pack = ('pack', '--key', 'pkcs11:token=tests;object=patch', '--in', script, '--out',
            place / 'fix.tlx')
    said = prompted([this.tlx, *pack], how['env'], b'2468')
    expect(said[0] == 0 and '2468' not in said[1], f'packed with a prompt: {said}')
    by_file = this.tell('pack', '--key', this.key, *pack[3:-1], folder / 'same.tlx')
    expect(by_file == (0, []) and (folder / 'same.tlx').read_bytes() ==
           (place / 'fix.tlx').read_bytes(), f'another patch by the key in a file: {by_file}')
    said = prompted([this.tlx, 'catalog', '--cert', certificate, '--key', uri, '--chain',
                     this.root.certificate, '--dir', place], how['env'], b'2468')
    expect(said[0] == 0, f'signed with a prompt: {said}')
    this.expect_run(folder, place)


# --- Signatures made elsewhere

def elsewhere(this, folder):
    """What --unsigned writes is signed by other tools, and only what fits is attached."""
    place = this.patch_folder(folder)
    certificate, key = this.publisher
    content, unsigned = folder / 'content', folder / 'unsigned.cat'
    for more in ((content,), (unsigned, '--form', 'catalog')):
        made = this.tell('catalog', '--dir', place, '--unsigned', *more)
        expect(made == (0, []) and not (place / 'patch.cat').exists(), f'{more}: {made}')
    # Wine takes the host's links for folders of their own.
    way = place if len(this.program) > 1 else folder / 'link'
    (folder / 'link').symlink_to(place)
    code, lines = this.tell('catalog', '--dir', place, '--unsigned', way / 'Sub' / 'list')
    expect(code == 1 and 'a file outside of it' in lines[0] and not (place / 'Sub' / 'list').exists(),
           f'a list in its own folder: {code}, {lines}')
    as_catalog = ('-econtent_type', '1.3.6.1.4.1.311.10.1')

    def sign(name, *how, signed=content):
        openssl('cms', '-sign', '-binary', '-signer', certificate, '-inkey', key, '-in', signed,
                '-out', folder / name, *how)
        return folder / name

    subprocess.run(['osslsigncode', 'sign', '-certs', certificate, '-key', key, '-ac',
                    this.root.certificate, '-in', unsigned, '-out', folder / 'signed.cat'],
                   check=True, capture_output=True)
    other = folder / 'other'
    digest = hashlib.sha256((place / 'Sub' / 'Deep.bin').read_bytes()).digest()
    other.write_bytes(content.read_bytes().replace(digest, digest[::-1]))
    detached, chain = ('--list', content), ('--chain', this.root.certificate)
    der = sign('detached.der', '-outform', 'DER', *as_catalog)
    bare = sign('bare.pem', '-outform', 'PEM', '-nocerts', *as_catalog)
    changed = folder / 'changed.der'
    changed.write_bytes(der.read_bytes()[:-1] + bytes([der.read_bytes()[-1] ^ 1]))
    for signature, more, words in (
            (der, detached + chain, None),
            (sign('whole.pem', '-outform', 'PEM', '-nodetach', '-md', 'sha384', *as_catalog), chain,
             None),
            (bare, detached + chain + ('--cert', certificate), None),
            (folder / 'signed.cat', (), None),
            (der, (), "doesn't bring along what it signs"),
            (bare, detached + chain, "the signer's certificate is neither"),
            (changed, detached, "isn't one by the key"),
            (sign('data.der', '-outform', 'DER'), detached, 'its content type must be'),
            (sign('sha1.der', '-outform', 'DER', '-md', 'sha1', *as_catalog), detached, 'SHA-256'),
            (sign('other.der', '-outform', 'DER', *as_catalog, signed=other), detached,
             'the signature of something else'),
            (der, ('--list', folder / 'other'), 'is not as it was'),
            (folder / 'signed.cat', ('--list', folder / 'other'), 'it brings another list'),
            (unsigned, (), 'a catalog has one signer'),
            (content, detached, 'there is no signed data in it')):
        (place / 'patch.cat').unlink(missing_ok=True)
        code, lines = this.tell('catalog', '--dir', place, '--attach', signature, *more)
        expect((code, (place / 'patch.cat').exists()) == ((1, False) if words else (0, True)) and
               (words in lines[-1] if words else not lines), f'{signature} {more}: {code} {lines}')
        if not words:
            this.expect_run(folder, place)
            expect(accepted(this, place), f'{signature}: osslsigncode refuses the catalog')
    (place / 'Sub' / 'Deep.bin').write_bytes(b'')
    (place / 'new').touch()
    code, lines = this.tell('catalog', '--dir', place, '--attach', der, *detached)
    expect(code == 1 and [line.split(':')[0].rpartition('\\')[2] for line in lines] == [
        'new', 'Deep.bin'], f'a changed folder: {lines}')


# --- Time stamps

def openssl(*words):
    return subprocess.run(['openssl', *words], check=True, capture_output=True).stdout


def accepted(this, place):
    """osslsigncode's opinion on a catalog."""
    return subprocess.run(['osslsigncode', 'verify', '-in', place / 'patch.cat', '-CAfile',
                           this.root.certificate, '-TSA-CAfile', this.root.certificate],
                          capture_output=True, check=False).returncode == 0


class Authority(http.server.BaseHTTPRequestHandler):
    """Stamps what it is asked to; the path of the URL names what is wrong with its answer."""

    def do_POST(self):  # pylint: disable=invalid-name
        folder, fault = self.server.folder, self.path.strip('/')
        query, reply = folder / 'query', folder / 'reply'
        question = self.rfile.read(int(self.headers['Content-Length']))
        query.write_bytes(question)
        imprint = question[question.index(b'\x04\x20') + 2:][:32]
        digest = {'other-nonce': imprint, 'other-data': bytes(32)}.get(fault)
        if digest:
            openssl('ts', '-query', '-digest', digest.hex(), '-sha256', '-cert', '-out', query)
        settings = folder / f'{fault}.conf'
        openssl('ts', '-reply', '-config', settings if settings.exists() else folder / 'good.conf',
                '-queryfile', query, '-out', reply)
        body = reply.read_bytes()
        if fault == 'byte-changed':
            body = body[:-1] + bytes([body[-1] ^ 1])
        elif fault == 'long':
            body += bytes(2 << 20)
        elif fault == 'not-for-stamps':
            body = self.resigned(folder, reply)
        self.send_response(503 if fault == 'busy' else 200)
        self.end_headers()
        self.wfile.write(body)

    @staticmethod
    def resigned(folder, reply):
        """The same answer, signed by somebody whose certificate is for code."""
        token, info = folder / 'stamp-token', folder / 'stamp-info'
        openssl('ts', '-reply', '-in', reply, '-token_out', '-out', token)
        openssl('cms', '-verify', '-noverify', '-inform', 'DER', '-in', token, '-out', info)
        openssl('cms', '-sign', '-cades', '-binary', '-nodetach', '-outform', 'DER', '-econtent_type',
                'id-smime-ct-TSTInfo', '-signer', folder / 'publisher.pem', '-inkey',
                folder / 'publisher.key', '-in', info, '-out', token)
        content = bytes.fromhex('3003020100') + token.read_bytes()
        return b'\x30\x82' + len(content).to_bytes(2, 'big') + content

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def authority(this):
    """The address of an authority that the machine trusts."""
    for name, days, digest in (('good', '20', 'sha256'), ('old', '-1', 'sha256'),
                               ('refusing', '20', 'sha512')):
        certificate, key = this.root.issue(f'stamper-{name}', '/O=Example/CN=Stamper',
                                           'timeStamping', days=days)
        (this.folder / f'{name}.conf').write_text(f"""[tsa]
default_tsa = t
[t]
serial = {this.folder}/stamp-serial
signer_cert = {certificate}
signer_key = {key}
certs = {this.root.certificate}
signer_digest = sha256
ess_cert_id_alg = sha256
default_policy = 1.2.3.4
digests = {digest}
""")
    with http.server.HTTPServer(('127.0.0.1', 0), Authority) as server:
        server.folder = this.folder
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield f'http://127.0.0.1:{server.server_port}/'
        finally:
            server.shutdown()
            thread.join()


def bad_stamps(this, folder):
    """Whatever an authority answers but a good stamp leaves the old catalog in place."""
    place = this.patch_folder(folder)
    (place / 'patch.cat').write_text('old')
    with authority(this) as address:
        for fault, words in (
                ('other-nonce', 'nonce mismatch'), ('other-data', 'message imprint mismatch'),
                ('byte-changed', 'no good time stamp'), ('refusing', 'rejection'),
                ('old', 'certificate has expired'), ('not-for-stamps', 'purpose'),
                ('long', 'failed with 0x800C0008'), ('busy', 'failed with 0x800C0007')):
            code, lines = this.catalog(place, '--timestamp', address + fault)
            expect(code == 1 and len(lines) == 1 and words in lines[0], f'{fault}: {code} {lines}')
    for url, words in ((address, 'takes no connection'), ('ftp://127.0.0.1/', 'no address of http'),
                       ('http://', 'no address of http')):
        code, lines = this.catalog(place, '--timestamp', url)
        expect(code == 1 and len(lines) == 1 and words in lines[0], f'{url}: {code} {lines}')
    expect((place / 'patch.cat').read_text() == 'old', 'the old catalog is gone')
    expect(sorted(os.listdir(place)) == ['Sub', 'fix.tlx', 'patch.cat'], 'a draft is left')


def short_lived(this, seconds):
    """A certificate of the publisher's that expires soon, and when."""
    end = int(time.time()) + seconds
    (this.folder / 'ca.conf').write_text(f"""[ca]
default_ca = d
[d]
database = {this.folder}/index.txt
new_certs_dir = {this.folder}
rand_serial = yes
default_md = sha256
policy = p
unique_subject = no
[p]
countryName = optional
organizationName = optional
commonName = supplied
[e]
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
""")
    (this.folder / 'index.txt').write_text('')
    request, certificate = this.folder / 'short.csr', this.folder / 'short.pem'
    openssl('req', '-new', '-key', this.publisher[1], '-subj', world.PUBLISHER, '-out', request)
    openssl('ca', '-batch', '-notext', '-config', this.folder / 'ca.conf', '-extensions', 'e', '-cert',
            this.root.certificate, '-keyfile', this.root.folder / 'root.key', '-enddate',
            time.strftime('%Y%m%d%H%M%SZ', time.gmtime(end)), '-in', request, '-out', certificate)
    return (certificate, this.publisher[1]), end


def outlives(this, folder):
    """A stamped catalog is good after its certificate's end; one without a stamp isn't."""
    stamped = this.patch_folder(folder)
    with authority(this) as address:
        for seconds in (3, 12, 48):  # on a slow host it may be over before it has signed
            signer, end = short_lived(this, seconds)
            code, lines = this.catalog(stamped, '--timestamp', address, signer=signer)
            late = shutil.copytree(stamped, folder / 'late', dirs_exist_ok=True)
            if code == 0 and this.catalog(late, signer=signer)[0] == 0:
                break
        expect(code == 0 and not lines, f'{code} {lines}')
        plain = shutil.copytree(late, folder / 'plain')
        code, lines = this.tell('catalog', '--dir', late, '--attach', plain / 'patch.cat',
                                '--timestamp', address)
    gate_runs.wait_until(lambda: time.time() > end + 1, 'the certificate does not expire')
    for place, is_good in ((stamped, True), (late, code == 0), (plain, False)):
        this.expect_run(folder, place, -3 if is_good else 323)
        expect(accepted(this, place) == is_good, f'osslsigncode thinks otherwise of {place}')


ROWS = {'catalog/names': names, 'catalog/not-files': not_files, 'catalog/signers': signers,
        'token': token,
        'elsewhere': elsewhere, 'stamp/bad': bad_stamps, 'stamp/outlives': outlives}


# Wine shows neither names that Windows can't have nor links, and the program reaches no token.
WINDOWS_ROWS = ('elsewhere', 'stamp/bad')


def all_rows(publisher, options):
    for row, action in ROWS.items():
        yield row, action, publisher
    if options.windows:
        under_wine = copy.copy(publisher)
        under_wine.program = [options.wine, options.windows]
        for row in WINDOWS_ROWS:
            yield f'windows/{row}', ROWS[row], under_wine


def main():
    options = world.option_parser('Publishes patches.').parse_args()
    with tempfile.TemporaryDirectory(prefix='tessel-publishing.') as name:
        root = pathlib.Path(name).resolve()
        publisher = Publisher(options, root)

        def run(row, action, actor):
            folder = root / row.replace('/', '.')
            folder.mkdir()
            return world.fault_of(lambda: action(actor, folder))

        return world.run_rows(all_rows(publisher, options), options,
                              lambda row: 'there is no SoftHSM' if row == 'token'
                              and not os.path.exists(SOFTHSM) else None, run)


if __name__ == '__main__':
    sys.exit(main())

"""Certificates for the tests of signatures, made with the openssl tool."""

import pathlib
import subprocess

_CONFIG = """
[req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[codeSigning]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
[serverAuth]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
"""

PUBLISHER = '/C=RO/O=Corvane SRL/CN=Corvane SRL'


def _openssl(*arguments):
    subprocess.run(['openssl', *arguments], check=True, capture_output=True)


class Authority:
    """A root, and what it issues. Files: <name>.pem and <name>.key in the folder."""

    def __init__(self, folder, name):
        self.folder = pathlib.Path(folder)
        self.config = self.folder / 'openssl.cnf'
        self.config.write_text(_CONFIG, encoding='ascii')
        self.certificate = self.folder / f'{name}.pem'
        self.key = self.folder / f'{name}.key'
        _openssl('req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', self.key, '-out',
                 self.certificate, '-days', '30', '-subj', f'/O=Example/CN={name}', '-config',
                 self.config, '-extensions', 'authority')

    def issue(self, name, subject=PUBLISHER, purpose='codeSigning', serial=None, days='20'):
        """Gives the paths of the certificate and of its key. Negative days have run out."""
        certificate, key = self.folder / f'{name}.pem', self.folder / f'{name}.key'
        request = self.folder / f'{name}.csr'
        _openssl('req', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', request, '-subj',
                 subject, '-config', self.config)
        number = ['-set_serial', f'0x{serial}'] if serial else ['-CAcreateserial']
        _openssl('x509', '-req', '-in', request, '-CA', self.certificate, '-CAkey', self.key,
                 '-out', certificate, '-days', days, '-extfile', self.config, '-extensions',
                 purpose, *number)
        return certificate, key

"""Certificates for the tests of signatures."""

import pathlib
import subprocess

_CERTIFICATES = pathlib.Path(__file__).resolve().parents[2] / 'scripts' / 'lib' / 'certificates'

PUBLISHER = '/C=RO/O=Corvane SRL/CN=Corvane SRL'


class Authority:
    """A root, and what it issues. Files: <name>.pem and <name>.key in the folder."""

    def __init__(self, folder, name):
        self.folder = pathlib.Path(folder)
        self.name = name
        self._make('authority', name)
        self.certificate = self.folder / f'{name}.pem'

    def issue(self, name, subject=PUBLISHER, purpose='codeSigning', serial='', days='20'):
        """Gives the paths of the certificate and of its key. Negative days have run out."""
        self._make('issue', self.name, name, subject, purpose, days, serial)
        return self.folder / f'{name}.pem', self.folder / f'{name}.key'

    def _make(self, *arguments):
        subprocess.run([_CERTIFICATES, *arguments], cwd=self.folder, check=True)

"""Random updates without a mistake, each made from its number, and what lint says of them: none may have a finding.

    python3 -m brevantlab.valid_update --seeds 20
"""
import argparse
import pathlib
import random
import sys
import tempfile
from typing import Callable

from .machine import PRODUCT, Machine
from .try_update import host_path

KEY = 'SOFTWARE\\Kazmere\\KZVLT\\'
LANGUAGES = 'EN-US', 'DE-DE', 'FR-FR', 'ES-ES', 'ja-JP', 'PT-BR'
NAMES = 'Mein Tresor', 'Kazmere Qorvault', 'Coffre & Clé', 'Vault (2)', '日本'
WORDS = 'panel', 'sites', 'Überblick', 'sync engine', 'a.b', 'x', 'notes-2'
# Folders of the product package: below the package, and where their files go; '' is the install folder.
PLACES = (('Share\\UI', ''), ('Share\\Patterns', 'Patterns'), ('Share\\Task', 'Task'),
          ('Share\\Task\\Deep', 'Task\\Deep'), ('Share\\Engine', ''), ('Share\\7-Zip\\Lang', 'Lang'),
          ('Share\\QorFirefoxExt\\a', 'QorFirefoxExt\\a'), ('Share\\Setting\\Help', 'Help'), ('64bit\\{0}', ''),
          ('64bit\\{0}\\Driver', 'Driver'))


class _Maker:
    """Varies what BrevantCheck new has written into a folder."""
    def __init__(self, home: pathlib.Path, chance: random.Random, languages: list[str]) -> None:
        self.home, self.random, self.languages = home, chance, languages
        self.package = next(home.glob('update/Component/*/Share')).parent
        self.sections: dict[str, list[str]] = {name: [] for name in (
            'QOR_DIR', 'QOR_FILE', 'QOR_REGISTRY_PATCH', 'QOR_CONFIG_MERGE', 'UPDATE_INFO', 'Run')}

    def make(self) -> None:
        parts: list[Callable[[str], None]] = [self.bring, self.delete, self.write_value, self.add_setting, self.run]
        for number in range(self.random.randint(0, 12)):
            self.random.choice(parts)(f'{self.random.choice(WORDS)}{number}')
        file = self.home / 'update/QorPaFrwk.ini'
        text = file.read_text('utf-16')
        for section, lines in self.sections.items():
            text = text.replace(f'[{section}]\n', ''.join(f'{line}\n' for line in [f'[{section}]', *lines]))
        file.write_text(text, 'utf-16', newline='\r\n')

    def put(self, path: str, text: str) -> None:
        file = self.home / path.replace('\\', '/')
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, 'utf-8')

    def bring(self, name: str) -> None:
        below, place = self.random.choice(PLACES)
        ending = self.random.choice(('.dll', '.dat', '.htm', ''))
        self.put(f'{self.package}/{below.format(self.package.name)}/{name}{ending}', 'content')
        if place and self.random.random() < 0.5:
            (self.home / 'installed' / place.replace('\\', '/')).mkdir(parents=True, exist_ok=True)
        elif place:
            self.sections['QOR_DIR'].append(f'add={{InstalledDir}}{place}')

    def delete(self, name: str) -> None:
        self.put(f'installed/Old/{name}.old', 'old')
        key = self.random.choice(('delete', 'delete_now'))
        self.sections['QOR_FILE'].append(f'{key}={{InstalledDir}}Old\\{name}.old')

    def write_value(self, name: str) -> None:
        kind, data = self.random.choice((('REG_SZ', '{InstalledDir}Help'), ('REG_SZ', 'Überblick 日本'),
                                         ('REG_DWORD', '15'), ('REG_QDWORD', '8589934592')))
        operation = self.random.choice(('add', 'add_if_non'))
        self.sections['QOR_REGISTRY_PATCH'].append(f'{operation}={KEY}{name}!Value!{kind}!{data}')

    def add_setting(self, name: str) -> None:
        tag = f'S{self.random.randrange(10**9)}'
        kind, value = self.random.choice((('string', name), ('int', '7'), ('bool', '1')))
        for language in self.languages:
            file = self.package / f'Share/Setting/config_{language}.xml'
            text = file.read_text('utf-8')
            file.write_text(text.replace('</Window>', f'<{tag} type="{kind}">{value}</{tag}></Window>'), 'utf-8')
        if self.random.random() < 0.5:
            self.sections['QOR_CONFIG_MERGE'].append(f'migrate=/Window/{tag}')

    def run(self, name: str) -> None:
        self.put(f'{self.package}/Share/Setting/{name}.cmd', 'exit')
        path = f'{{InstalledDir}}{name}.cmd'
        self.sections['Run'].append('SysRunOnce=' + self.random.choice((
            f'"{path}" /x', f'cmd.exe /c ""{path}" /x"', f'cmd.exe /c if exist "{path}" call "{path}"')))


def make_update(home: pathlib.Path, seed: int, machine: Machine) -> str:
    """The update of a number and the product that it is for, in folders of `home`; says what it is."""
    chance = random.Random(seed)
    languages = chance.sample(LANGUAGES, chance.randint(1, 4))
    version = f'{chance.randint(1, 9)}.{chance.randint(0, 9)}.{chance.randint(1, 9)}.{chance.randint(1101, 9999)}'
    product = chance.choice(NAMES)
    done = machine.run(PRODUCT + 'BrevantCheck.exe', 'new', host_path(home), '--product', product,
                       '--version', version, '--languages', ','.join(languages))
    if done.code != 0:
        raise ValueError(f'seed {seed}: {done.output}')
    _Maker(home, chance, languages).make()
    return f'{product} {version} in {", ".join(languages)}'


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(description='Lints random updates without a mistake.')
    parser.add_argument('--seeds', type=int, default=20)
    parser.add_argument('--first', type=int, default=1)
    options = parser.parse_args(arguments)
    clean = 0
    with Machine() as machine, tempfile.TemporaryDirectory() as folder:
        machine.install_program(PRODUCT)
        for seed in range(options.first, options.first + options.seeds):
            home = pathlib.Path(folder) / str(seed)
            made = make_update(home, seed, machine)
            done = machine.run(PRODUCT + 'BrevantCheck.exe', 'lint', host_path(home / 'update'), '--installed',
                               host_path(home / 'installed'), '--strict')
            clean += done.code == 0
            records = (home / 'update/QorPaFrwk.ini').read_text('utf-16').count('=')
            files = sum(file.is_file() for file in (home / 'update').rglob('*'))
            print(f'seed {seed}: {made}, {files} files, {records} lines with a record: {done.output.strip()}')
    print(f'{clean} of {options.seeds} without a finding')
    return 0 if clean == options.seeds else 1


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))

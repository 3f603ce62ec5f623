"""The bill of materials, validated. The schema is not this project's: a package of Debian brings it, locked here by its
hash and kept with the other downloads.

    python3 -m shipping.schema fetch FOLDER          unpacks the schema's files into FOLDER
    python3 -m shipping.schema validate BILL FOLDER
"""
import argparse
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import warnings
from typing import Any

from shipping.apt import Archive
from shipping.dependencies import DependencyError, downloads, sha256, unpack_pack

# Debian 12 has no package with the schema.
SUITE, PACKAGE, VERSION = 'trixie', 'python3-cyclonedx-lib', '9.1.0-2'
DIGEST = '5e221d5ecf0a92e3ec4087d93894872b02ffff4d3d530099530889edde111512'
FILES = 'usr/lib/python3/dist-packages/cyclonedx/schema/_res'


def package_file() -> pathlib.Path:
    return downloads() / f'{PACKAGE}_{VERSION}_all.deb'


def fetch(folder: pathlib.Path) -> None:
    """Unpacks the schema's files into the folder; downloads their package when it is not kept."""
    unpack_pack(downloads())
    file = package_file()
    if not file.is_file() or sha256(file) != DIGEST:
        with tempfile.TemporaryDirectory() as name:
            archive = Archive(pathlib.Path(name), SUITE, 'deb')
            if not archive.download_binary(PACKAGE, VERSION, downloads()):
                raise DependencyError(f'{PACKAGE} {VERSION} of {SUITE}, which has the schema of the bill of materials, '
                                      f'cannot be fetched\n{archive.last_words()}')
    if not file.is_file() or sha256(file) != DIGEST:
        file.unlink(missing_ok=True)
        raise DependencyError(f'{file.name} differs from the locked SHA-256')
    with tempfile.TemporaryDirectory() as unpacked:
        subprocess.run(['dpkg-deb', '-x', str(file), unpacked], check=True)
        folder.mkdir(parents=True, exist_ok=True)
        for schema in pathlib.Path(unpacked, FILES).glob('*.schema.json'):
            shutil.copy(schema, folder / schema.name.replace('.SNAPSHOT', ''))


def faults(bill: dict[str, Any], folder: pathlib.Path) -> list[str]:
    """What is wrong with a bill: by the schema in the folder, and what no schema can say."""
    import jsonschema  # of Debian's package python3-jsonschema, which only a release needs
    schemas = {file.name: json.loads(file.read_text('utf-8')) for file in folder.glob('*.schema.json')}
    schema = schemas[f'bom-{bill["specVersion"]}.schema.json']
    store = {key: found for name, found in schemas.items() for key in (name, found.get('$id', name))}
    with warnings.catch_warnings():  # the way of Debian 12's version; newer ones have another one, too
        warnings.simplefilter('ignore', DeprecationWarning)
        resolver = jsonschema.RefResolver(schema.get('$id', ''), schema, store=store)
    checker = jsonschema.Draft7Validator(schema, resolver=resolver, format_checker=jsonschema.FormatChecker())
    found = [f'{"/".join(map(str, error.absolute_path)) or "(whole)"}: {error.message[:300]}'
             for error in checker.iter_errors(bill)]
    return found + _graph_faults(bill) + _licence_faults(bill, set(schemas['spdx.schema.json']['enum']))


def _graph_faults(bill: dict[str, Any]) -> list[str]:
    """Every component is reached from the product, and nothing else is named."""
    graph = {entry['ref']: entry.get('dependsOn', []) for entry in bill.get('dependencies', [])}
    named = {component.get('bom-ref') for component in bill['components']}
    product = bill['metadata']['component'].get('bom-ref')
    reached, waiting = set(), [product]
    while waiting:
        ref = waiting.pop()
        if ref not in reached:
            reached.add(ref)
            waiting += graph.get(ref, [])
    unknown = (reached | graph.keys()) - named - {product}
    return [f'dependencies: {ref} is no component' for ref in sorted(map(str, unknown))] \
        + [f'dependencies: nothing leads to {ref}' for ref in sorted(map(str, named - reached))]


def _licence_faults(bill: dict[str, Any], known: set[str]) -> list[str]:
    expressions = {licence['expression'] for component in bill['components']
                   for licence in component.get('licenses', []) if 'expression' in licence}
    words = {word for text in expressions for word in re.findall(r'[\w.+-]+', text)} - {'AND', 'OR', 'WITH'}
    return [f'licenses: {word} is no name of SPDX' for word in sorted(words - known)
            if not word.startswith('LicenseRef-')]


def main() -> int:
    parser = argparse.ArgumentParser(description='The schema of the bill of materials.')
    verbs = parser.add_subparsers(dest='verb', required=True)
    verbs.add_parser('fetch').add_argument('folder', type=pathlib.Path)
    verb = verbs.add_parser('validate')
    verb.add_argument('bill', type=pathlib.Path)
    verb.add_argument('folder', type=pathlib.Path)
    arguments = parser.parse_args()
    try:
        if arguments.verb == 'fetch':
            fetch(arguments.folder)
            return 0
        found = faults(json.loads(arguments.bill.read_text('utf-8')), arguments.folder)
    except DependencyError as error:
        found = [str(error)]
    for fault in found:
        print(f'[release] FAILED: {fault}', file=sys.stderr)
    if not found:
        print(f'[release] {arguments.bill.name} is valid')
    return int(bool(found))


if __name__ == '__main__':
    sys.exit(main())

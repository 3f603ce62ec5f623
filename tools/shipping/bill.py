"""The bill of materials of a release (CycloneDX): what is shipped, what is in it, who made it, what depends on what."""
import hashlib
import json
import pathlib
import re
import subprocess
import time
import urllib.parse
import uuid
from typing import Any

from shipping.apt import Source, machine_suite
from shipping.dependencies import TESTS_ONLY, USED, read_lock, read_suite, sha256

SPEC_VERSION = '1.5'
MAKER = {'name': 'Kazmere'}
PRODUCT_LICENCE = {'license': {'name': 'Kazmere Qorvault, proprietary'}}
DEBIAN = {'name': 'Debian', 'url': ['https://www.debian.org']}
EXPAT_DLL = 'libexpat.dll'
LOCKED_LICENCES = {'expat': 'MIT', 'libjsoncpp': 'MIT'}
GCC_LICENCE = 'GPL-3.0-or-later WITH GCC-exception-3.1'
# The libraries of the toolchain that are linked into programs: a file of each, by which its package is found, and its
# licence; None: as Debian's copyright file of the package has it.
TOOLCHAIN = {'libgcc.a': GCC_LICENCE, 'libstdc++.a': GCC_LICENCE, 'libmingwex.a': None, 'libwinpthread.a': None}
BOOST_HEADER, BOOST_LICENCE = pathlib.Path('/usr/include/boost/lexical_cast.hpp'), 'BSL-1.0'
TOOLCHAIN_SCRIPT = pathlib.Path(__file__).parents[1] / 'toolchain.sh'
# The names of Debian's copyright file, and the files of the runtime that no program has: of the profiler and the tests.
SPDX = {'ZPL-2.1': 'ZPL-2.1', 'expat': 'MIT', 'BSD-3-clause': 'BSD-3-Clause', 'ISC': 'ISC',
        'BSD-2-clause-NetBSD': 'BSD-2-Clause', 'BSD-3-clause-Lockless': 'BSD-3-Clause',
        **{name: f'LicenseRef-{name}' for name in ('public-domain', 'Lucent', 'David-Gay', 'Permissive-Sun',
                                                   'Keith-Marshall')}}
RUNTIME_FILES = re.compile(r'\*|mingw-w64-crt/(?!profile/).*|mingw-w64-libraries/winpthreads/(?!tests).*')

Component = dict[str, Any]


class BillError(Exception):
    """Something that belongs into the bill is not known."""


def bill_of_materials(checkout: pathlib.Path, shipped: list[pathlib.Path], version: str, epoch: int,
                      known_older: str = '') -> dict[str, object]:
    """`shipped`: the programs; `known_older`: why a library was shipped of which a newer version is known."""
    libraries = _locked(checkout / 'build/deps' / USED) + _toolchain()
    expat = next(library for library in libraries if library['name'] == 'expat')
    programs = [_program(file, version, expat) for file in shipped]
    components = programs + libraries
    graph = {'brevant': [program['bom-ref'] for program in programs],
             **{program['bom-ref']: _contents(program['name'], libraries) for program in programs},
             **{library['bom-ref']: [] for library in libraries}}
    identity = hashlib.sha256(json.dumps([components, known_older]).encode()).hexdigest()
    product: Component = {
        'type': 'application', 'bom-ref': 'brevant', 'name': 'Brevant', 'version': version, 'supplier': MAKER,
        'author': MAKER['name'], 'licenses': [PRODUCT_LICENCE], 'description': 'Patch agent of Kazmere Qorvault'}
    metadata: Component = {'timestamp': time.strftime('%Y-%m-%dT%H:%M:%SZ', time.gmtime(epoch)),
                           'authors': [MAKER], 'component': product, 'supplier': MAKER}
    if known_older:
        metadata['properties'] = [{'name': 'brevant:known-older', 'value': known_older}]
    return {'$schema': f'http://cyclonedx.org/schema/bom-{SPEC_VERSION}.schema.json',
            'bomFormat': 'CycloneDX', 'specVersion': SPEC_VERSION, 'version': 1,
            'serialNumber': f'urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, identity)}',
            'metadata': metadata, 'components': components,
            'dependencies': [{'ref': ref, 'dependsOn': sorted(others)} for ref, others in sorted(graph.items())]}


def _contents(program: str, libraries: list[Component]) -> list[str]:
    """What a program is linked with, and the libraries that it loads."""
    left_out = {EXPAT_DLL: r'libjsoncpp|libboost.*|g\+\+.*', 'KzDbg64.dll': r'expat|libjsoncpp|libboost.*'}
    loaded: dict[str, list[str]] = {EXPAT_DLL: [], 'KzDbg64.dll': [], 'Brevant.exe': [EXPAT_DLL, 'KzDbg64.dll']}
    return [library['bom-ref'] for library in libraries
            if not re.fullmatch(left_out.get(program, 'expat'), library['name'])] \
        + [_file_ref(name) for name in loaded.get(program, [EXPAT_DLL])]


def _file_ref(name: str) -> str:
    return f'file:{name}'


def _program(file: pathlib.Path, version: str, expat: Component) -> Component:
    kind = 'application' if file.suffix == '.exe' else 'library'
    facts: Component = {'version': version, 'supplier': MAKER, 'author': MAKER['name'], 'licenses': [PRODUCT_LICENCE]}
    if file.name == EXPAT_DLL:  # Debian's source, built here: its version is that of the library
        facts = {'version': upstream(expat['version']), 'supplier': MAKER, 'author': 'Expat maintainers',
                 'licenses': expat['licenses']}
    return {'type': kind, 'bom-ref': _file_ref(file.name), 'name': file.name, **facts,
            'hashes': [{'alg': 'SHA-256', 'content': sha256(file)}]}


def upstream(version: str) -> str:
    """The upstream part of a version of Debian."""
    return re.sub(r'^\d+:|-[^-]*$', '', version)


def _locked(used: pathlib.Path) -> list[Component]:
    """The source packages that were built here."""
    suite = read_suite(used)
    return [_locked_library(source, suite) for source in read_lock(used) if source.name not in TESTS_ONLY]


def _locked_library(source: Source, suite: str) -> Component:
    if source.name not in LOCKED_LICENCES:
        raise BillError(f'the licence of {source.name} is not known here')
    library = _library(source.name, source.version, 'source', suite, LOCKED_LICENCES[source.name])
    return {**library, 'externalReferences': [{'type': 'distribution', 'url': source.dsc,
                                               'hashes': [{'alg': 'SHA-256', 'content': source.sha256}]}]}


def _toolchain() -> list[Component]:
    """The binary packages of this machine's Debian of which parts are in the programs."""
    files = {BOOST_HEADER: BOOST_LICENCE}
    for name, licence in TOOLCHAIN.items():
        found = _said(compiler(), f'-print-file-name={name}')
        files[pathlib.Path(found)] = licence or ''
    libraries = {}
    for file, licence in files.items():
        package = _said('dpkg-query', '-S', str(file.resolve())).partition(':')[0]
        version, architecture = _said('dpkg-query', '-W', '-f=${Version} ${Architecture}', package).split()
        libraries[package] = _library(package, version, architecture, machine_suite(),
                                      licence or runtime_licences(package))
    return list(libraries.values())


def compiler() -> str:
    """The compiler that builds the programs; BREVANT_TOOLCHAIN selects it."""
    return _said('bash', '-c', '. "$0" && echo "$kTarget-g++$kThreads"', str(TOOLCHAIN_SCRIPT))


def runtime_licences(package: str, copyrights: str = '') -> str:
    """The licences of the runtime's files as an expression, from Debian's copyright file, by default the package's."""
    text = copyrights or pathlib.Path(f'/usr/share/doc/{package}/copyright').read_text('utf-8')
    found: dict[str, None] = {}
    for paragraph in re.split(r'\n\s*\n', text):
        files = re.search(r'^Files:((?: .*\n|\s.*\n)+)', paragraph + '\n', re.M)
        licence = re.search(r'^License: *(.+)$', paragraph, re.M)
        if files and licence and any(RUNTIME_FILES.fullmatch(name) for name in files[1].split()):
            for name in re.split(r',? and | or ', licence[1].strip()):
                if name not in SPDX:
                    raise BillError(f'{package} has files with the licence {name}, which is not known here')
                found[SPDX[name]] = None
    if not found:
        raise BillError(f'the copyright file of {package} names no licence')
    return ' AND '.join(found)


def _library(name: str, version: str, architecture: str, suite: str, licence: str) -> Component:
    qualifiers = f'arch={architecture}' + (f'&distro={suite}' if suite else '')
    purl = f'pkg:deb/debian/{urllib.parse.quote(name)}@{urllib.parse.quote(version, safe=":~")}?{qualifiers}'
    return {'type': 'library', 'bom-ref': purl, 'name': name, 'version': version, 'supplier': DEBIAN,
            'licenses': [{'expression': licence}], 'purl': purl}


def _said(*command: str) -> str:
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if run.returncode or not run.stdout.strip():
        raise BillError(f'{" ".join(command)}: {run.stdout.strip()}')
    return run.stdout.strip()

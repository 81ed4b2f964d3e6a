"""The command line: banner, provider list, selection by file name, help, refusals."""

import os
import re

import pytest

from service import BUILD, DATA, run_program

TITLE = "\n       -= Ostrand Service 1.0 =-\n\n"
HELP = (DATA / "help-transcoder.txt").read_text()
SELECT_HELP = (DATA / "help-select.txt").read_text()


def behind_banner(stdout):
    banner, title, rest = stdout.partition(TITLE)
    assert title, stdout
    lines = banner.split("\n")
    assert lines[0] == "", "an empty line opens the banner"
    assert len(lines) == 8 and all(line.strip() for line in lines[1:7]), lines
    assert lines[7] == ""
    return rest


def check_malformed(result, argument_count, help_text):
    """The refusal: its line on standard error, then pointers and the help on standard output."""
    assert result.returncode == 255
    assert "\nMalformed options, sorry:\n" in "\n" + result.stderr
    found = re.fullmatch(r"((?:\* 0x[0-9a-f]+\n)+)Try : \n(.*)", behind_banner(result.stdout),
                         re.DOTALL)
    assert found, result.stdout
    pointers = found.group(1).splitlines()
    # The same pointer once an argument: it is no listing of them.
    assert len(pointers) == argument_count
    assert len(set(pointers)) == 1
    assert found.group(2) == help_text


def test_list_of_providers(folder):
    result = run_program(["--list-providers"], folder)
    assert result.returncode == 0
    assert behind_banner(result.stdout) == ""
    before, line, listing = result.stderr.partition("Providers\n")
    assert line
    # Registration comes before main, and so before the list.
    registrations = re.findall(r"trying register service provider (\S+)\n"
                               r"registering service provider\n", before)
    assert sorted(registrations) == [
        "DappleRenderService", "TranscoderLegacyService", "TranscoderService"]
    names = re.findall(r"^service provider (\S+) \(\(nil\)\)$", listing, re.MULTILINE)
    assert listing == "".join("service provider %s ((nil))\n" % name for name in sorted(names))
    assert sorted(registrations) == names
    assert os.listdir(folder) == []


@pytest.mark.parametrize("option", ["--list", "--li", "--list-p"])
def test_list_of_providers_by_a_guess(folder, option):
    result = run_program([option, "--bogus", "stray"], folder)
    assert result.returncode == 0
    assert "instantiating provider" not in result.stderr


def test_list_is_printed_at_every_start(folder):
    result = run_program(["--bogus"], folder)
    assert "Providers\n" in result.stderr
    assert "service provider TranscoderService ((nil))\n" in result.stderr


def test_help(folder):
    result = run_program(["--help"], folder)
    assert result.returncode == 0
    assert behind_banner(result.stdout) == HELP
    assert result.stderr.endswith("instantiating provider TranscoderService\n")
    # Neither initialised nor logged.
    assert os.listdir(folder) == []


def test_help_with_everything_that_may_be_repeated(folder):
    result = run_program(["-h", "--ssl", "--ssl", "--shortuuid", "--shortuuid", "stray"], folder)
    assert result.returncode == 0
    assert behind_banner(result.stdout) == HELP


def test_unknown_provider(folder):
    result = run_program(["--provider", "nosuch"], folder)
    assert result.returncode == 255
    assert behind_banner(result.stdout) == ""
    assert result.stderr.endswith(
        "instantiating provider nosuch\ncould not instantiate provider : nosuch\n")


def test_guessed_provider_option_in_the_first_phase(folder):
    for option in ("--p", "--prov", "--provider"):
        result = run_program([option, "5000"], folder)
        assert result.returncode == 255
        assert result.stderr.endswith("could not instantiate provider : 5000\n")


@pytest.mark.parametrize("name,provider", [
    ("Foo.exe.exe", "Foo.exe"),
    ("Foo.exe.bak", "Foo.bak"),
    ("Foo.EXE", "Foo.EXE"),
    ("ostrandservice.exe", "ostrandservice"),
    ("MyOstrandServiceOstrandService", "MyOstrandService"),
    ("FooOstrandServiceBar", "FooBar"),
])
def test_unknown_names_of_the_executable(folder, name, provider):
    link = folder / name
    link.symlink_to(BUILD / "OstrandService")
    result = run_program(["--help"], folder, link=str(link))
    assert result.returncode == 255
    assert result.stderr.endswith("instantiating provider %s\ncould not instantiate provider : "
                                  "%s\n" % (provider, provider))


@pytest.mark.parametrize("name", [
    "OstrandService", "OstrandService.exe", "OstrandServiceTranscoderService.exe",
    "TranscoderService.exe", "Transcoder.exeService", "Ostrand.exeService",
    "TranscoderOstrandServiceService", ".exe",
])
def test_names_of_the_executable_that_mean_the_transcoder(folder, name):
    link = folder / name
    link.symlink_to(BUILD / "OstrandService")
    result = run_program(["--help"], folder, link=str(link))
    assert result.returncode == 0
    assert result.stderr.endswith("instantiating provider TranscoderService\n")


@pytest.mark.parametrize("argv0,provider", [
    ("", "TranscoderService"), ("/some/where/OstrandService.exe", "TranscoderService"),
    ("./a/Nobody.exe", "Nobody"),
])
def test_name_comes_from_argv0_not_from_the_file(folder, argv0, provider):
    result = run_program(["--help"], folder, argv0=argv0)
    assert "instantiating provider %s\n" % provider in result.stderr
    assert result.returncode == (0 if provider == "TranscoderService" else 255)


def test_provider_option_goes_before_the_name(folder):
    link = folder / "Foo"
    link.symlink_to(BUILD / "OstrandService")
    result = run_program(["--provider", "TranscoderService", "--help"], folder, link=str(link))
    assert result.returncode == 0
    assert behind_banner(result.stdout) == HELP


def test_links_beside_the_program():
    for name in ("TranscoderService", "TranscoderLegacyService", "DappleRenderService"):
        assert (BUILD / name).resolve() == (BUILD / "OstrandService").resolve()


@pytest.mark.parametrize("arguments", [
    ["--bogus"],
    ["--bogus", "--help"],
    ["-x"],
    ["--port", "1", "--port", "2"],
    ["--help", "--help"],
    ["--port", "-1"],
    ["--port", "65536"],
    ["--port", "abc"],
    ["--port"],
    ["--mport", "-1"],
    ["--delivery_port", "65536"],
    ["--delivery_port", "-1"],
    ["--mttl", "many"],
    ["--refresh", ""],
    ["--worker_threads", "-1"],
    ["--worker_threads", "4097"],
    ["--worker_threads", "4294967295"],
    ["--worker_threads", "4294967296"],
    ["-t", "three"],
    ["--listen_threads", "4097"],
    ["--listen_threads", "2147483648"],
    ["--allowReconfig", "maybe"],
    ["--ssl=yes"],
    ["--prov", "TranscoderService"],
    ["--p", "TranscoderService"],
    ["--delivery", "x"],
])
def test_malformed_in_the_second_phase(folder, arguments):
    result = run_program(arguments, folder)
    assert "instantiating provider TranscoderService\n" in result.stderr
    check_malformed(result, len(arguments) + 1, HELP)
    assert os.listdir(folder) == []


@pytest.mark.parametrize("arguments", [
    ["--port="],
    ["--provider"],
    ["--provider", "a", "--provider", "b"],
    ["--list-providers=1"],
])
def test_malformed_in_the_first_phase(folder, arguments):
    result = run_program(arguments, folder)
    assert "instantiating provider" not in result.stderr
    check_malformed(result, len(arguments) + 1, SELECT_HELP)


def test_bounds_of_thread_counts_are_accepted(folder):
    result = run_program(
        ["--help", "--worker_threads", "4096", "--listen_threads", "4096"], folder)
    assert result.returncode == 0
    result = run_program(["--help", "--worker_threads", "0", "--listen_threads", "-5"], folder)
    assert result.returncode == 0

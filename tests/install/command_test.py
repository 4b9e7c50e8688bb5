"""The manual page and the completions of a command say what its --help says, in both directions."""
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = os.environ["VEX_SOURCE"]
PROGRAMS = dict(program.split("=") for program in os.environ["VEX_PROGRAMS"].split(","))


def options(text):
    return set(re.findall(r"(?<![\w-])(--[a-z][a-z0-9-]*|-[a-z](?![\w-]))", text))


def usage(program):
    """The synopsis of each command that --help lists, and the options that belong to no command. A command stands
    behind two blanks, its synopsis ends at two more or goes on behind six."""
    text = subprocess.run([PROGRAMS[program], "--help"], capture_output=True, text=True, check=False).stdout
    found = {name: first + more for name, first, more in re.findall(
        rf"^  (?:{program} )?([a-z][\w-]*) +(\S+(?: \S+)*)(?: {{2,}}.*)?((?:\n {{6}}\S.*)*)", text, re.MULTILINE)}
    assert found, text
    return found, options(text) - options(" ".join(found.values()))


def actions(synopsis):
    """The words that may follow a command: those that stand for themselves, outside of brackets."""
    while "[" in synopsis:
        synopsis = re.sub(r"\[[^][]*\]", "", synopsis)
    return set(re.findall(r"\b[a-z][a-z-]*", synopsis))


def page(program):
    """What the manual says of each command, rendered: from its item to the next one."""
    text = subprocess.run(["mandoc", "-Tascii", "-Owidth=1000", f"{SOURCE}/man/{program}.1"], capture_output=True,
                          text=True, check=True).stdout
    text = re.sub(".\b", "", text)
    told = {}
    for name, rest in re.findall(r"^ {5}([a-z][\w-]*)(.*(?:\n(?: {6,}.*)?)*)", text, re.MULTILINE):
        told[name] = told.get(name, "") + rest
    return text, told


def offered(shell, program, lines, folder=SOURCE):
    """What completion offers at the end of each line, in the shell itself."""
    if shell == "zsh":
        run = ["zsh", "-f", f"{SOURCE}/tests/install/complete.zsh", f"{SOURCE}/completions", *lines]
    elif shell == "fish":
        run = ["fish", "--no-config", "-c", f"source {SOURCE}/completions/{program}.fish\n"
               "for line in $argv; complete -C $line; echo @@next; end", *lines]
    else:
        run = ["bash", "--norc", "-c", f"source {SOURCE}/completions/{program}.bash\n"
               "for line; do IFS=/ read -ra COMP_WORDS <<< \"$line\"; [[ $line == */ ]] && COMP_WORDS+=('')\n"
               f"COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); COMPREPLY=(); _{program}\n"
               "printf '%s\\n' \"${COMPREPLY[@]}\"; echo @@next; done", "bash",
               *(re.sub("=", "/=/", line.replace(" ", "/")) for line in lines)]
    with tempfile.TemporaryDirectory() as home:
        done = subprocess.run(run, capture_output=True, text=True, check=True, cwd=folder, timeout=60,
                              env={**os.environ, "HOME": home, "XDG_CONFIG_HOME": home, "XDG_DATA_HOME": home, "TERM": "dumb"})
    return [{word.split("\t")[0].strip() for word in part.splitlines()} - {""}
            for part in done.stdout.split("@@next")[:-1]]


class CommandTest(unittest.TestCase):
    def test_the_page_tells_of_each_command_option_and_action_and_of_no_other(self):
        for program in PROGRAMS:
            (commands, common), (text, told) = usage(program), page(program)
            self.assertLessEqual(common, options(text))
            for command, synopsis in commands.items():
                with self.subTest(command):
                    self.assertEqual(options(synopsis), options(told.get(command, "")) - common)
                    self.assertLessEqual(actions(synopsis), set(re.findall(r"[a-z][a-z-]*", told[command])))

    def test_each_shell_completes_exactly_what_there_is(self):
        for program in PROGRAMS:
            commands, common = usage(program)
            for shell in ("bash", "zsh", "fish"):
                with self.subTest(shell):
                    lines = [f"{program} ", f"{program} -", f"{program} {min(commands)} -"]
                    names, before, behind = offered(shell, program, lines)
                    self.assertEqual(set(commands), names)
                    self.assertLessEqual(common, before | behind)
                    # behind the method for those commands whose options follow one
                    lines = [" ".join([program, command, *sorted(actions(synopsis))[:1], "-"])
                             for command, synopsis in commands.items()]
                    for line, words, synopsis in zip(lines, offered(shell, program, lines), commands.values()):
                        self.assertEqual(options(synopsis), {w for w in words if w.startswith("-")} - common, line)
                    lines = [f"{program} {command} " for command, synopsis in commands.items() if actions(synopsis)]
                    for line, words in zip(lines, offered(shell, program, lines)):
                        self.assertEqual(actions(commands[line.split()[1]]), words, line)

    def test_values_and_files_are_completed_where_they_stand(self):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(f"{folder}/some folder")
            pathlib.Path(folder, "some file").touch()
            both, directory = {"some file", "some folder"}, {"some folder"}
            for line, expected in (("vex info so", both), ("vex info x so", both), ("vex walk so", directory),
                                   ("vex seal --key-file so", both), ("vex seal --key-file=so", both),
                                   ("vex sort --temp=so", directory), ("vex --ini so", both), ("vex http get url so", both),
                                   ("vex sort --key so", set()), ("vex http get --key so", both), ("vex uid so", set()),
                                   ("vex ini get so", both), ("vex info -- so", both), ("vex digest -- --", set()),
                                   ("vex seal --cipher aes-256-ct", {"aes-256-ctr"}),
                                   ("vex seal --cipher=blow", {"blowfish"}), ("vex net routes ", {"add", "delete"}),
                                   ("vex --ini x pass", {"passwd", "passwd-store"}), ("vex seal in out so", set())):
                with self.subTest(line):
                    self.assertEqual([expected], offered("bash", "vex", [line], folder))

#!/bin/bash
# An e-mail as Python's parser reads it: mail.sh PROGRAM (tests/peers/mail.cpp). Exit code 77: there is no Python.
set -euo pipefail
python3 -c 'import email.policy' 2> /dev/null || exit 77
python3 - "$1" << 'END'
import email, email.policy, os, subprocess, sys, tempfile

subject = "Station Grüße: " + "sehr lang und 漢字 " * 20 + "\nBcc: eve@example.org"
text = ".\n.. Grüße 漢字\n" + "x" * 5000 + "\n\n.\nFrom here\n--=_part--\nno line end"
files = {"all bytes.bin": bytes(range(256)) * 300, ".hidden": b".\r\n.\n", 'Grüße "7".txt': b"", "odd": b"\0" * 58}

with tempfile.TemporaryDirectory() as folder:
    def path(name): return os.path.join(folder, name)
    for name, content in files.items():
        with open(path(name), "wb") as file: file.write(content)
    with open(path("sendmail"), "w") as file:
        file.write('#!/bin/sh\nprintf "%s\\n" "$@" > "$0.words"\ncat > "$0.message"\n')
    os.chmod(path("sendmail"), 0o700)
    subprocess.run([sys.argv[1], "alice@example.org; bob@example.org", "carol@example.org", "eve@example.org", subject,
                    text, ";".join(path(name) for name in files)],
                   env=dict(os.environ, GNSS_KERNEL_SENDMAIL=path("sendmail")), check=True, timeout=60)
    with open(path("sendmail.message"), "rb") as file: raw = file.read()
    with open(path("sendmail.words")) as file: words = file.read().split()

message = email.message_from_bytes(raw, policy=email.policy.default)
body, *attachments = message.iter_parts()
header = raw.split(b"\n\n")[0]
seen = {
    "words": words, "To": [a.addr_spec for a in message["To"].addresses],
    "Cc": [a.addr_spec for a in message["Cc"].addresses], "Bcc": message["Bcc"], "blind": b"eve@" in header,
    "From": [(a.display_name, a.addr_spec) for a in message["From"].addresses], "Subject": str(message["Subject"]),
    "text": body.get_content(), "type": body.get_content_type(),
    "files": {part.get_filename(): part.get_payload(decode=True) for part in attachments},
    "defects": [part.defects + [h.defects for h in part.values() if h.defects] for part in message.walk()
                if part.defects or any(h.defects for h in part.values())],
    "unfit lines": [line for line in raw.split(b"\n") if len(line) > 997 or line[:1] == b"." or not line.isascii()],
}
recipients = ["alice@example.org", "bob@example.org", "carol@example.org", "eve@example.org"]
expected = {
    "words": ["-i", "-f", "station@example.org"] + recipients, "To": recipients[:2], "Cc": recipients[2:3], "Bcc": None,
    "blind": False, "From": [('Prüfstation "7" <x>', "station@example.org")], "Subject": subject.replace("\n", " "),
    "text": text.replace("\n", "\r\n"), "type": "text/plain", "files": files, "defects": [], "unfit lines": [],
}
wrong = {key: (seen[key], expected[key]) for key in expected if seen[key] != expected[key]}
sys.exit(f"seen and expected: {wrong}" if wrong else 0)
END

"""Pictures: those in the documents are made from an example, and what a switch has is on them.

With EXPECT=write in the environment the pictures in the documents are made anew.
"""

import html
import os
import pathlib
import re
import shutil
import subprocess

import pytest

import kybridge

TOP = pathlib.Path(__file__).parents[2]
BROADCAST = b"\xff" * 6 + b"\x02\0\0\0\0\x0a"

pytestmark = pytest.mark.skipif(shutil.which("dot") is None, reason="Debian's package graphviz has what it takes")


def content(svg):
    """What a picture says, in its colours; where on it depends on the fonts of a machine."""
    return re.findall(r'<title>.*?</title>|<text[^>]*>.*?</text>|(?:fill|stroke)="[^"]*"', re.sub(r' (x|y)="[^"]*"', "", svg))


@pytest.mark.parametrize("picture, command", [("two-tenants.svg", "draw"), ("two-tenants-frame.svg", "draw frame")])
def test_the_documents_show_the_example(tmp_path, picture, command):
    script = tmp_path / "example.kyb"
    example = (TOP / "examples" / "two-tenants.kyb").read_text().split("# Blue moves out")[0]
    script.write_text(f'{example}\nframe north vlan 100 pcp 5\n{command} "{tmp_path / picture}"\n')
    subprocess.run([os.environ["KYBRIDGE_HOST"], script], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    shown = TOP / "docs" / picture
    if os.environ.get("EXPECT") == "write":
        shutil.copy(tmp_path / picture, shown)
    assert content(shown.read_text()) == content((tmp_path / picture).read_text())
    assert any(picture in page.read_text() for page in [TOP / "README.md", *(TOP / "docs").glob("*.md")])


def test_all_that_there_is_can_be_seen(switch, tmp_path):
    ports = [switch.port(f"port-{number}") for number in range(60)]
    for number in range(8):
        bridge = switch.bridge(f"tenant-{number}")
        for port in ports[number::8]:
            bridge.attach(port, vlan=100 + number, untagged=True)
    switch.bridges["tenant-0"].learning("auto")
    ports[1].set(rstp="learning", pvid=101)
    ports[2].set(link="down")
    ports[8].set(rstp="discarding")
    for port in ports[0], ports[3]:
        switch.do(f"vlan join {port.name} 20 tagged")
    switch.draw(tmp_path / "all.svg")
    said = re.findall(r"<text[^>]*>(.*?)</text>", html.unescape((tmp_path / "all.svg").read_text()))
    for text in [port.name for port in ports] + ["tenant-7", "bridge 1, internal VLAN 1", "learning auto", "learning off",
                                                 "egress rule 1, 8 uses", "egress rule 8, 7 uses", "VLAN 107 untagged",
                                                 "rule 60", "learning, PVID 101", "forwarding, link down",
                                                 "discarding", "VLAN 20 tagged", "VLAN 20"]:
        assert text in said, text
    assert said.count("VLAN 20 tagged") == 2

    def drawn(port, tag):
        switch.send(port, BROADCAST + b"\x81\0" + tag.to_bytes(2, "big") + b"\x08\0" + bytes(46))
        switch.draw_frame(tmp_path / "frame.dot")
        return (tmp_path / "frame.dot").read_text()

    frame = drawn(ports[0], 100)
    assert "02:00:00:00:00:0a &gt; ff:ff:ff:ff:ff:ff, vlan 100 pcp 0" in frame
    assert (frame.count("leaves untagged"), frame.count("dropped: the port is discarding")) == (6, 1)
    # The arrows: into the middle at the first port, out of it at the six others, in red to the one that discards.
    assert re.search(r"port_65537:r100:e -> middle_1 \[[^]]*#0a7d0a[^]]*dir=forward", frame)
    assert len(re.findall(r"penwidth=3", frame)) == 8 and len(re.findall(r"#c00000\", penwidth", frame)) == 1
    assert "dropped: the port is no member of the VLAN" in drawn(ports[0], 300)
    assert "dropped: the link is down" in drawn(ports[2], 102)
    assert "leaves vlan 20 pcp 0" in drawn(ports[0], 20)


def test_a_picture_comes_whole_or_not_at_all(switch, tmp_path, monkeypatch):
    for file, text in ((tmp_path / "switch.jpg", r"expected a name that ends in .svg, .png or .dot"),
                       (tmp_path / "missing" / "switch.svg", "No such file or directory"), ("switch", "ends in .svg")):
        with pytest.raises(kybridge.Failed, match=text):
            switch.draw(file)
    with pytest.raises(kybridge.WrongCommand, match="no frame was sent yet"):
        switch.draw_frame(tmp_path / "frame.svg")
    switch.draw(tmp_path / "switch.png")
    assert (tmp_path / "switch.png").read_bytes().startswith(b"\x89PNG")
    assert "<svg" in switch._repr_svg_()
    monkeypatch.setenv("PATH", "/nowhere")
    with kybridge.Switch() as poor:
        with pytest.raises(kybridge.Failed, match="Debian's package is graphviz"):
            poor.draw(tmp_path / "poor.svg")
        assert poor._repr_svg_() is None
    assert [file.name for file in tmp_path.iterdir()] == ["switch.png"]

"""What users read: the README's Python example runs as it stands, the stubs match the module."""
import os
import re
import subprocess
import sys

import grabsystem


def test_readme_example_runs(demo, tmp_path):
    readme = open(os.path.join(os.path.dirname(__file__), "..", "..", "README.md")).read()
    section = readme[readme.index("## Python"):]
    code = re.search(r"```python\n(.*?)```", section, re.S).group(1)
    script = tmp_path / "example.py"
    script.write_text(code)
    out = subprocess.run([sys.executable, str(script), str(demo / "armraw" / "0.armraw"), str(tmp_path / "out.dbg")],
                         check=True, capture_output=True, text=True, cwd=tmp_path).stdout
    assert "camera" in out and (tmp_path / "out.dbg").stat().st_size > 0


def test_stubs_name_what_the_module_has():
    import ast

    import grabsystem
    stub = ast.parse(open(os.path.join(os.path.dirname(grabsystem.__file__), "__init__.pyi")).read())
    classes = [n for n in stub.body if isinstance(n, ast.ClassDef)]
    functions = [n.name for n in stub.body if isinstance(n, ast.FunctionDef)]
    assert sorted([c.name for c in classes] + functions) == sorted(grabsystem.__all__)
    for cls in classes:
        members = {m.name if isinstance(m, ast.FunctionDef) else m.target.id
                   for m in cls.body if isinstance(m, (ast.FunctionDef, ast.AnnAssign))}
        target = getattr(grabsystem, cls.name)
        if issubclass(target, Exception):  # its fields are the instance's
            target = target("file", "cause")
        assert members <= set(dir(target)), cls.name


def test_readme_lists_every_counter_and_the_dicts_use_the_tables():
    readme = open(os.path.join(os.path.dirname(__file__), "..", "..", "README.md")).read()
    for struct, fields in grabsystem.counter_fields().items():
        # From where the README first names the struct to the end of that section.
        start = readme.index(f"`{struct}`") if f"`{struct}`" in readme else readme.index(f"::{struct}`")
        end = readme.find("\n## ", start)
        section = readme[start:end]
        missing = [name for name, _ in fields if f"`{name}`" not in section]
        assert not missing, f"README lists no {missing} near {struct}"
    pool = grabsystem.ImagePool(1, 4, 4)
    assert list(pool.counters) == [key for _, key in grabsystem.counter_fields()["PoolCounters"]]
    assert list(grabsystem.ArmExtractor().counters) == [key for _, key in grabsystem.counter_fields()["ExtractCounters"]]

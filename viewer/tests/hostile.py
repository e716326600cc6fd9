"""Prints a model whose names would break out of a page that took them for markup."""

names = [
    "</script><script>window.broken=1</script>",
    "\"'><img/src=x/onerror=window.broken=1>",
    "=cmd|'/C_calc'!A0",
    "-2+3+cmd|'/C_calc'!A0",
    "\u202egnp.txt",
    "n" * 10_000,
    "<!--",
]
for i, name in enumerate(names):
    x = 3 * i
    print(f"v {x} 0 0\nv {x + 2} 0 0\nv {x + 2} 2 0\nv {x} 2 0")
    print(f"o {name}\nusemtl {name}\nf {4 * i + 1} {4 * i + 2} {4 * i + 3} {4 * i + 4}")

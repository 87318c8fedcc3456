# Counting the words of a text, character work and dict updates.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    text = "the quick brown fox jumps over the lazy dog and the cat sat on the mat"
    counts = {}
    letters = 0
    for i in range(0, n):
        for word in text.split(" "):
            if word in counts:
                counts[word] = counts[word] + 1
            else:
                counts[word] = 1
            if word[0] == "t": letters = letters + len(word)
    result = []
    keys = counts.keys()
    keys.sort()
    for word in keys:
        result.append(word + "=" + counts[word])
    return result.join(" ") + " " + letters

print work(180000)

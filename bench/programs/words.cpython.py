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
            if word[0] == "t":
                letters = letters + len(word)
    result = []
    keys = list(counts.keys())
    keys.sort()
    for word in keys:
        result.append(word + "=" + str(counts[word]))
    return " ".join(result) + " " + str(letters)


print(work(180000))

def failures(build, clips):
    return []

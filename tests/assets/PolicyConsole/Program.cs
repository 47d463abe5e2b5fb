namespace PolicyConsole
{
    public static class Program
    {
        public static int Main(string[] args)
        {
            Worker worker = new Worker();
            System.Console.WriteLine(worker.Work(args.Length));
            return 0;
        }
    }

    public class Worker
    {
        public int Work(int count) => Helper(count) + 1;

        public int Helper(int count) => count * 2;

        // Not an entry point, but named like one.
        public static void main() { }
    }

    public readonly struct Pair<T>
    {
        public readonly T First;
        public T GetFirst() => First;
    }

    public struct Counter
    {
        public int Value;
        public int Next() => ++Value;
    }

    public ref struct Cursor
    {
        public int Position;
        public int Advance() => ++Position;
    }
}

namespace PolicyConsole
{
    // A name beyond ASCII, as a directive file in UTF-8 writes it.
    public readonly struct Größe
    {
        public int Maß() => 1;
    }
}

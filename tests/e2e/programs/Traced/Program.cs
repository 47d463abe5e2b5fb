// Methods of every parameter and result shape, called once each, for a test
// that selects some of them by directive and reads what the agent recorded.
using System.Globalization;

namespace Traced
{
    public enum Color { Red, Green = 5 }

    public struct Point
    {
        public int X;
        public int Y;

        public Point(int x, int y) { X = x; Y = y; }

        public int Sum(int extra) => X + Y + extra;

        public override string ToString() => "(" + X + "," + Y + ")";
    }

    public class Box<T>
    {
        private readonly T item;

        public Box(T item) { this.item = item; }

        public T Get() => item;

        public T Keep(T value) => value;

        public U Echo<U>(U value) => value;

        public U Pair<U>(T first, U second) => second;

        public override string ToString() => "Box:" + item;
    }

    public class Subject
    {
        private readonly string name;

        public Subject(string name) { this.name = name; }

        public override string ToString() => "Subject:" + name;

        public static double Scalars(bool flag, char letter, sbyte i8, byte u8, short i16, ushort u16, int i32,
                                     uint u32, long i64, ulong u64, float f32, double f64)
        {
            return (flag ? 1 : 0) + letter + i8 + u8 + i16 + u16 + i32 + u32 + i64 + (double)u64 + f32 + f64;
        }

        public string Mixed(Color color, Point point, string text, object any, int[] numbers)
        {
            return color + "/" + point + "/" + text + "/" + any + "/" + numbers.Length;
        }

        public static int WithRefs(int a, ref int counter, out int copy, Span<int> span, int z)
        {
            counter++;
            copy = a;
            span[0] = z;
            return a + z;
        }

        public int Throws(int code)
        {
            throw new InvalidOperationException("bad " + code);
        }

        public static void Nothing() { }
    }

    // Not selected by any directive: must not reach the agent.
    public static class Bystander
    {
        public static int Twice(int x) => 2 * x;
    }

    public static class Program
    {
        public static int Main(string[] args)
        {
            CultureInfo.CurrentCulture = CultureInfo.InvariantCulture;
            var subject = new Subject("s1");
            Console.WriteLine("scalars=" + Subject.Scalars(true, 'x', -8, 8, -16, 16, -32, 32, -64, 64, 1.5f, 2.25));
            Console.WriteLine("mixed=" + subject.Mixed(Color.Green, new Point(3, 4), "text", 42L, new[] { 1, 2, 3 }));
            int counter = 10;
            Span<int> span = stackalloc int[1];
            Console.WriteLine("refs=" + Subject.WithRefs(7, ref counter, out int copy, span, 9) + " " + counter + " " +
                              copy + " " + span[0]);
            var point = new Point(1, 2);
            Console.WriteLine("sum=" + point.Sum(10));
            var box = new Box<string>("content");
            Console.WriteLine("get=" + box.Get() + " keep=" + box.Keep("kept"));
            Subject.Nothing();
            Console.WriteLine("twice=" + Bystander.Twice(21));
            try
            {
                subject.Throws(5);
            }
            catch (InvalidOperationException e)
            {
                Console.WriteLine("caught=" + e.GetType().Name + ":" + e.Message);
            }
            GenericMethods(box);
            return args.Length > 0 ? int.Parse(args[0]) : 0;
        }

        // Methods with type parameters of their own, each on its own so that one
        // that fails does not hide the others.
        private static void GenericMethods(Box<string> box)
        {
            Attempt("echo", () => box.Echo<int>(98).ToString());
            Attempt("pair", () => box.Pair<int>("first", 99).ToString());
        }

        private static void Attempt(string name, Func<string> call)
        {
            try
            {
                Console.WriteLine(name + "=" + call());
            }
            catch (Exception e)
            {
                Console.WriteLine(name + " failed: " + e.GetType().Name);
            }
        }
    }
}
